#pragma once

#include "engine/InputPlatform.h"
#include "ui/PreferencesWindow.h"

#include <QJsonObject>
#include <QList>
#include <QString>

#include <memory>

namespace kestrix::test {

// One analytics event as the window or the menu handed it over.
struct SentEvent
{
    QString name;
    QJsonObject params;
};

// Stands in for everything the preferences window reaches outside the process: records analytics
// events and launch-at-login requests, and answers the autostart query as told.
struct WindowRecorder
{
    QList<SentEvent> events;
    QList<bool> launchAtLoginRequests;
    bool launchAtLoginEnabled = false;

    PreferencesServices services()
    {
        return {
            .sendAnalytics =
                [this](const QString &name, const QJsonObject &params) {
                    events.append({ name, params });
                },
            .setLaunchAtLogin = [this](bool enabled) { launchAtLoginRequests.append(enabled); },
            .isLaunchAtLoginEnabled = [this] { return launchAtLoginEnabled; },
        };
    }
};

// The platform under the engine, reduced to what the menu's commands change: whether the hook is
// installed. Nothing is posted and no timer runs in these tests.
class RecordingHook final : public InputHook, public EventPoster, public RepeatingTimer
{
public:
    bool install() override
    {
        installed = true;
        ++installCalls;
        return true;
    }
    void uninstall() override
    {
        installed = false;
        ++uninstallCalls;
    }
    void reenable() override { }
    std::optional<PointerLocation> currentPointerLocation() override { return std::nullopt; }
    bool postScroll(const ScrollEvent & /*event*/) override { return true; }
    bool postRightClick(PointerLocation /*location*/, std::uint64_t /*marker*/) override { return true; }
    void start(std::chrono::milliseconds /*period*/) override { }
    void cancel() override { }

    bool installed = false;
    int installCalls = 0;
    int uninstallCalls = 0;
};

} // namespace kestrix::test
