// The real answers behind AccessibilityHelper: the backend's access check and the polkit prompt.

#include "desktop/AccessibilityHelper.h"

#include "core/Log.h"
#include "linux/InputAccess.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

#include <memory>
#include <sys/stat.h>

namespace kestrix::AccessibilityHelper {

using namespace Qt::StringLiterals;

namespace {

// Where Debian's pkexec lives; never looked up through PATH, which the user's session controls.
constexpr QLatin1StringView pkexecPath = "/usr/bin/pkexec"_L1;
// pkexec's own exit statuses: the dialog was dismissed, or no authorisation was given.
constexpr int pkexecDismissed = 126;
constexpr int pkexecNotAuthorized = 127;

void logPromptLine(const QString &text) { Log::write(("[Kestrix] Input permission: "_L1 + text).toStdString()); }

// Owned by root and writable by no one else, looked at without following a link.
bool rootOnly(const QString &path, bool directory)
{
    struct stat status
    { };
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        return false;
    const bool rightType = directory ? S_ISDIR(status.st_mode) : S_ISREG(status.st_mode);
    return rightType && status.st_uid == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Runs pkexec without waiting: the event loop, and with it the once-a-second check, keeps running
// while the user reads the dialog. The outcome is logged and, unless access was installed, noted
// in `failed`; the checks see the result.
void startPrompt(const std::shared_ptr<bool> &failed)
{
    const QString helper = ruleHelperPath();
    if (helper.isEmpty()) {
        logPromptLine(u"the udev rule helper is not installed as " KESTRIX_INSTALLED_RULE_HELPER
                      " (from a source tree, scripts/run grants access with sudo)"_s);
        *failed = true;
        return;
    }
    const QString pkexec = rootOnlyExecutable(pkexecPath);
    if (pkexec.isEmpty()) {
        logPromptLine(u"cannot ask for it: "_s + pkexecPath + u" is missing (Debian package pkexec)"_s);
        *failed = true;
        return;
    }
    auto *process = new QProcess(QCoreApplication::instance());
    process->setProcessChannelMode(QProcess::ForwardedChannels);
    QObject::connect(process, &QProcess::errorOccurred, process, [process, failed](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            *failed = true;
            logPromptLine(u"cannot start pkexec: "_s + process->errorString());
            process->deleteLater();
        }
    });
    QObject::connect(process, &QProcess::finished, process, [failed](int exitCode, QProcess::ExitStatus status) {
        *failed = status != QProcess::NormalExit || exitCode != 0;
    });
    QObject::connect(process, &QProcess::finished, process, [process](int exitCode, QProcess::ExitStatus status) {
        if (status != QProcess::NormalExit)
            logPromptLine(u"pkexec ended abnormally"_s);
        else if (exitCode == pkexecDismissed || exitCode == pkexecNotAuthorized)
            logPromptLine(u"the authentication was dismissed or refused"_s);
        else if (exitCode != 0)
            logPromptLine(u"the udev rule helper failed with status %1"_s.arg(exitCode));
        else
            Log::debug("[Kestrix] Input permission: udev rule installed");
        process->deleteLater();
    });
    process->start(pkexec, { helper });
}

} // namespace

QString rootOnlyExecutable(const QString &path)
{
    if (!QDir::isAbsolutePath(path))
        return {};
    // The canonical path is the one checked and the one run: a link on the way, wherever it lives,
    // cannot point elsewhere between the check and the start.
    const QFileInfo file(path);
    QString canonical = file.canonicalFilePath();
    if (canonical.isEmpty() || !file.isExecutable() || !rootOnly(canonical, false))
        return {};
    for (QDir folder = QFileInfo(canonical).dir();; folder.cdUp()) {
        if (!rootOnly(folder.path(), true))
            return {};
        if (folder.isRoot())
            return canonical;
    }
}

QString ruleHelperPath() { return rootOnlyExecutable(u"" KESTRIX_INSTALLED_RULE_HELPER ""_s); }

Access systemAccess()
{
    auto failed = std::make_shared<bool>(false);
    return {
        .isTrusted = [] { return InputAccess::isGranted(); },
        .promptOnce =
            [failed] {
                startPrompt(failed);
                return InputAccess::isGranted();
            },
        .promptFailed = [failed] { return *failed; },
    };
}

} // namespace kestrix::AccessibilityHelper
