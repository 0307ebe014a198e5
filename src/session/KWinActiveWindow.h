#pragma once

#include "session/WindowApp.h"

#include <QDBusContext>
#include <QDeadlineTimer>
#include <QObject>
#include <QString>

#include <functional>

namespace kestrix {

// The active window on KDE Plasma: a KWin script, loaded over D-Bus, calls setActiveWindow() on this
// object whenever the active window changes. KWin loads scripts from files only, so the script (kept
// in the program's resources) is written to the runtime folder with this connection's bus name in it.
class KWinActiveWindow final : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.orvane.kestrix.ActiveWindow")

public:
    static constexpr const char *ObjectPath = "/com/orvane/kestrix/ActiveWindow";
    // The plugin name the script is loaded under in KWin.
    static constexpr const char *ScriptName = "kestrix-active-window";

    using Report = std::function<void(const WindowApp &)>;
    explicit KWinActiveWindow(Report report, QObject *parent = nullptr);
    // Unloads the script from KWin.
    ~KWinActiveWindow() override;

    // Loads and starts the script; `done` says whether KWin took it. A KWin still starting (not on
    // the bus yet, or without its scripting object yet) is asked again every second for 30 s.
    void load(const std::function<void(bool)> &done);

public Q_SLOTS:
    // Called by the script; calls from anyone but KWin are ignored.
    void setActiveWindow(const QString &resourceClass, const QString &resourceName);

private:
    void attempt(const std::function<void(bool)> &done);
    void loadScript(const std::function<void(bool)> &done);
    // Schedules another attempt and returns true, or returns false once KWin had its time.
    bool retryLater(const std::function<void(bool)> &done);

    Report m_report;
    QDeadlineTimer m_startupDeadline;
    QString m_kwinOwner;
    bool m_loaded = false;
};

} // namespace kestrix
