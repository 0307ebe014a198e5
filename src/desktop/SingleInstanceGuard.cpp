#include "desktop/SingleInstanceGuard.h"

#include "core/Log.h"
#include "desktop/AppIdentity.h"

#include <QByteArray>
#include <QDir>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <limits.h>
#include <limits>
#include <optional>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace kestrix {

using namespace Qt::StringLiterals;

ProcessIdentity ProcessIdentity::kestrix()
{
    return { QString(AppIdentity::identifier), QString(AppIdentity::displayName) };
}

namespace SingleInstanceGuard {
namespace {

constexpr std::chrono::milliseconds waitLimit { 3000 };
constexpr std::chrono::milliseconds pollInterval { 100 };

// A whole /proc file; empty when the process is gone or the file is not readable.
QByteArray readProcFile(const QByteArray &path)
{
    QByteArray contents;
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return contents;
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        contents.append(buffer, static_cast<qsizetype>(count));
    }
    ::close(fd);
    return contents;
}

// The value of one "Key:\tvalue" line of /proc/<pid>/status.
QByteArray statusField(const QByteArray &status, QByteArrayView key)
{
    for (const QByteArray &line : status.split('\n')) {
        if (line.startsWith(key) && line.size() > key.size() && line.at(key.size()) == ':')
            return line.mid(key.size() + 1).trimmed();
    }
    return {};
}

// Reads one process; nothing when it belongs to another user, has gone or is a zombie.
std::optional<RunningProcess> readProcess(pid_t pid)
{
    const QByteArray base = "/proc/" + QByteArray::number(pid) + '/';
    const QByteArray status = readProcFile(base + "status");
    if (status.isEmpty())
        return std::nullopt;
    // "Uid:" lists the real, effective, saved and file-system user ids; the real one decides whose
    // process it is, as it does for kill().
    const QByteArray realUid = statusField(status, "Uid").split('\t').value(0);
    bool numeric = false;
    if (realUid.toUInt(&numeric) != ::getuid() || !numeric)
        return std::nullopt;
    const QByteArray state = statusField(status, "State");
    if (state.startsWith('Z') || state.startsWith('X'))
        return std::nullopt;

    RunningProcess process;
    process.pid = pid;
    // /proc/<pid>/stat: the name in parentheses may hold spaces and parentheses itself, so the
    // fields are counted from the last ')': the state is field 3, the start time field 22.
    const QByteArray stat = readProcFile(base + "stat");
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    process.startTime = fields.value(22 - 3).toULongLong();
    const QByteArray commandLine = readProcFile(base + "cmdline");
    process.identifier = QString::fromUtf8(commandLine.left(commandLine.indexOf('\0')));
    QByteArray name = readProcFile(base + "comm");
    if (name.endsWith('\n'))
        name.chop(1);
    process.displayName = QString::fromUtf8(name);
    return process;
}

std::vector<pid_t> findCopies(const ProcessIdentity &identity, const RunningProcess &self)
{
    std::vector<pid_t> copies;
    for (const RunningProcess &process : runningProcesses()) {
        if (isOlderCopy(process, identity, self))
            copies.push_back(process.pid);
    }
    return copies;
}

// Sends SIGTERM through a pidfd after checking, with the pidfd held, that the process still is a
// copy: a process id freed and reused since the enumeration is never signalled.
void askToQuit(pid_t pid, const ProcessIdentity &identity, const RunningProcess &self)
{
    const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (pidfd < 0)
        return; // gone already
    const std::optional<RunningProcess> process = readProcess(pid);
    if (process && isOlderCopy(*process, identity, self))
        ::syscall(SYS_pidfd_send_signal, pidfd, SIGTERM, nullptr, 0);
    ::close(pidfd);
}

} // namespace

void adoptIdentity(char **argv, const ProcessIdentity &identity)
{
    const QByteArray identifier = identity.identifier.toUtf8();
    if (argv != nullptr && argv[0] != nullptr && identifier != argv[0]) {
        char path[PATH_MAX];
        const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
        if (length > 0) {
            path[length] = '\0';
            char *const startedAs = argv[0];
            argv[0] = const_cast<char *>(identifier.constData());
            ::execv(path, argv);
            // Still here: the program file is gone (replaced by an upgrade while we started).
            // Carry on under the display name alone.
            argv[0] = startedAs;
        }
    }
    const QByteArray name = identity.displayName.toUtf8();
    ::prctl(PR_SET_NAME, name.constData(), 0, 0, 0);
}

std::vector<RunningProcess> runningProcesses()
{
    std::vector<RunningProcess> processes;
    const QStringList entries = QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool numeric = false;
        const int pid = entry.toInt(&numeric);
        if (!numeric || pid <= 0)
            continue;
        if (std::optional<RunningProcess> process = readProcess(pid))
            processes.push_back(std::move(*process));
    }
    std::sort(processes.begin(), processes.end(),
        [](const RunningProcess &a, const RunningProcess &b) { return a.pid < b.pid; });
    return processes;
}

RunningProcess ownProcess()
{
    if (std::optional<RunningProcess> self = readProcess(::getpid()))
        return *self;
    // Unreadable /proc: every copy counts as older.
    return {
        .pid = ::getpid(), .startTime = std::numeric_limits<std::uint64_t>::max(), .identifier = {}, .displayName = {}
    };
}

bool isOlderCopy(const RunningProcess &process, const ProcessIdentity &identity, const RunningProcess &self)
{
    if (process.pid == self.pid)
        return false;
    // Started in the same clock tick: the lower process id is taken as the older one.
    if (process.startTime > self.startTime || (process.startTime == self.startTime && process.pid > self.pid))
        return false;
    if (!process.identifier.isEmpty() && process.identifier == identity.identifier)
        return true;
    return !process.displayName.isEmpty() && process.displayName == identity.displayName;
}

std::vector<pid_t> findOlderCopies(const ProcessIdentity &identity) { return findCopies(identity, ownProcess()); }

std::vector<pid_t> terminateOlderCopies(const ProcessIdentity &identity)
{
    const RunningProcess self = ownProcess();
    std::vector<pid_t> copies = findCopies(identity, self);
    if (copies.empty())
        return copies;

    Log::write("[Kestrix] 기존 프로세스 종료 중...");
    for (const pid_t pid : copies)
        askToQuit(pid, identity, self);

    // The first count comes straight after the requests; a copy that ignores them is not forced.
    const auto deadline = std::chrono::steady_clock::now() + waitLimit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (findCopies(identity, self).empty())
            break;
        std::this_thread::sleep_for(pollInterval);
    }
    Log::write("[Kestrix] 기존 프로세스 종료 완료");
    return copies;
}

} // namespace SingleInstanceGuard
} // namespace kestrix
