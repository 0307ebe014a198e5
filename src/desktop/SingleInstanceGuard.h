#pragma once

#include <QString>

#include <cstdint>
#include <sys/types.h>
#include <vector>

// Newest copy wins: a starting Kestrix asks every older copy of this user to quit and waits briefly
// for them to go. It never quits itself because another copy runs.
//
// How a running process is recognised on Linux. Two names, read from /proc/<pid> of processes of
// this real user only; neither comes from the environment, which children would inherit:
//   identifier    argv[0] of the process (the first string of /proc/<pid>/cmdline). Kestrix
//                 re-executes itself once at start with "com.orvane.kestrix" as argv[0], so `ps`
//                 shows the identifier and every copy carries it however it was started.
//   display name  the process name (/proc/<pid>/comm), which Kestrix sets to "Kestrix". A program
//                 that exec()s gets its own name back, so helpers Kestrix starts are never copies.
// A process counts as an older copy when its identifier matches, or else its display name matches
// (a copy that could not re-execute is still caught), and it started before this one. Zombies are
// gone already: they are never counted. Only older copies are asked: of two copies started at the
// same moment, each asking the other would leave none; this way the newer one stays.
namespace kestrix {

struct ProcessIdentity
{
    QString identifier;
    QString displayName; // at most 15 bytes: the kernel's limit for a process name

    // "com.orvane.kestrix" and "Kestrix".
    static ProcessIdentity kestrix();
};

namespace SingleInstanceGuard {

// Gives this process `identity`: re-executes the running program with the identifier as argv[0]
// (keeping every other argument and the environment) unless argv[0] already is the identifier, then
// sets the process name. Call it first in main, before any thread exists. When the re-execution
// fails (the program file was replaced or removed), the process carries on with its name only.
void adoptIdentity(char **argv, const ProcessIdentity &identity = ProcessIdentity::kestrix());

struct RunningProcess
{
    pid_t pid = 0;
    std::uint64_t startTime = 0; // clock ticks after boot
    QString identifier; // empty when the process has no command line (kernel threads, zombies)
    QString displayName;
};

// The live processes of this real user, by ascending process id.
std::vector<RunningProcess> runningProcesses();

// This process, as /proc shows it.
RunningProcess ownProcess();

// The rule above, for one process.
bool isOlderCopy(const RunningProcess &process, const ProcessIdentity &identity, const RunningProcess &self);

// The older copies running now, by ascending process id.
std::vector<pid_t> findOlderCopies(const ProcessIdentity &identity = ProcessIdentity::kestrix());

// Asks every older copy to quit (SIGTERM, which every Kestrix handles as a clean quit), waits up to
// 3.0 s for them to go, polling every 0.1 s, and returns the process ids it asked, in order. Logs
// one line before asking and one when the wait ends; nothing when no copy runs. Blocks the calling
// thread; start-up carries on afterwards in every case.
std::vector<pid_t> terminateOlderCopies(const ProcessIdentity &identity = ProcessIdentity::kestrix());

} // namespace SingleInstanceGuard
} // namespace kestrix
