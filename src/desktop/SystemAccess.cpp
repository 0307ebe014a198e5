// The real answers behind AccessibilityHelper: the backend's access check and the polkit prompt.

#include "desktop/AccessibilityHelper.h"

#include "core/Log.h"
#include "linux/InputAccess.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>

#include <memory>

namespace kestrix::AccessibilityHelper {

using namespace Qt::StringLiterals;

namespace {

// pkexec's own exit statuses: the dialog was dismissed, or no authorisation was given.
constexpr int pkexecDismissed = 126;
constexpr int pkexecNotAuthorized = 127;

void logPromptLine(const QString &text) { Log::write(("[Kestrix] Input permission: "_L1 + text).toStdString()); }

// Runs pkexec without waiting: the event loop, and with it the once-a-second check, keeps running
// while the user reads the dialog. The outcome is logged and, unless access was installed, noted
// in `failed`; the checks see the result.
void startPrompt(const std::shared_ptr<bool> &failed)
{
    const QString helper = ruleHelperPath();
    if (helper.isEmpty()) {
        logPromptLine(u"the udev rule helper is not installed (" KESTRIX_INSTALLED_RULE_HELPER ")"_s);
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
    process->start(u"pkexec"_s, { helper });
}

} // namespace

QString ruleHelperPath()
{
    for (const QString &candidate : { u"" KESTRIX_INSTALLED_RULE_HELPER ""_s, u"" KESTRIX_BUILD_RULE_HELPER ""_s }) {
        if (QFileInfo(candidate).isExecutable())
            return candidate;
    }
    return {};
}

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
