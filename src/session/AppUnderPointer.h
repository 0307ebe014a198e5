#pragma once

#include "session/Session.h"
#include "session/WindowApp.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace kestrix {

class KWinActiveWindow;
class SwayIpc;
class X11PointerTracker;

// Which app the pointer is over, or, where the desktop tells only that, which app has the focus:
//   X11 sessions: the client window under the pointer (a thread of its own, see X11PointerTracker);
//   sway: the focused container's app_id (WM_CLASS under Xwayland), followed through IPC events;
//   KDE Plasma on Wayland: the active window, reported by a KWin script;
//   GNOME on Wayland: the focused window, reported by Kestrix's GNOME Shell extension.
// The object lives on the GUI thread; current() may be read from any thread at any rate and never
// waits on the desktop. Where no source works the app is always empty, and remedy() says what would
// make one work.
class AppUnderPointer final : public QObject
{
    Q_OBJECT

public:
    enum class Source { None, X11Pointer, SwayFocus, KWinScript, GnomeShellExtension };
    enum class Remedy {
        None, // a source works
        Checking, // the desktop has not answered yet
        GnomeEnableExtension, // installed and off: GnomeShellExtension::enable(), then refresh()
        GnomeInstallExtension, // not installed (a Kestrix built from source and not installed)
        GnomeLogInAgain, // installed after GNOME Shell started; seen from the next login
        GnomeExtensionFailed, // GNOME Shell reports an error or does not support its version
        UnsupportedWaylandDesktop, // a Wayland compositor other than GNOME, KDE Plasma or sway
        DesktopUnreachable, // the X server, sway's socket, KWin or the session bus did not answer
        NoDisplay, // neither WAYLAND_DISPLAY nor DISPLAY is set
    };

    explicit AppUnderPointer(QObject *parent = nullptr);
    explicit AppUnderPointer(const Session &session, QObject *parent = nullptr);
    ~AppUnderPointer() override;

    // Any thread. Empty when no app is known (the bare desktop, no source).
    WindowApp current() const;

    bool available() const { return m_remedy == Remedy::None; }
    Source source() const { return m_source; }
    // "X11", "sway", "KWin", "GNOME Shell extension", or "none"; for the log and bug reports.
    QString sourceName() const;
    Remedy remedy() const { return m_remedy; }

    // Asks the desktop again, e.g. after the GNOME Shell extension was enabled.
    void refresh();

    // Asks the desktop now; `done` runs later on this object's thread, with nothing when no source
    // works or the desktop did not answer. For "Add the app under the pointer".
    void lookUpOnce(const std::function<void(std::optional<WindowApp>)> &done);

Q_SIGNALS:
    // The app changed; `app` is its id (class), or its instance when it has no class.
    void changed(const QString &app);
    void availabilityChanged();

private Q_SLOTS:
    void gnomeFocusChanged(const QString &wmClass, const QString &wmClassInstance);

private:
    void publish(const WindowApp &app); // any thread
    void setRemedy(Remedy remedy);
    void startX11(const QByteArray &display);
    void startSway(const QString &socketPath);
    void querySwayTree(const std::function<void(std::optional<WindowApp>)> &done);
    void startKWin();
    void startGnome();

    Session m_session;
    Source m_source = Source::None;
    Remedy m_remedy = Remedy::Checking;
    std::atomic<std::shared_ptr<const WindowApp>> m_current;
    std::unique_ptr<X11PointerTracker> m_x11;
    std::unique_ptr<SwayIpc> m_sway;
    std::unique_ptr<KWinActiveWindow> m_kwin;
};

} // namespace kestrix
