#pragma once

#include "session/Session.h"

#include <QJsonDocument>
#include <QObject>
#include <QString>

#include <memory>

namespace kestrix {

// The desktop's own switches for mice that change what Kestrix must do: left-handed (the physical
// right button is the primary one, so the secondary button is the physical left) and natural
// scrolling (the desktop reverses every wheel, the twin's included). Read where the running desktop
// keeps them and followed while it runs:
//   GNOME (and desktops on its settings): GSettings org.gnome.desktop.peripherals.mouse;
//   KDE Plasma: kcminputrc;
//   sway: its IPC (get_inputs, input events);
//   any other X11 session: the server's pointer button map and the libinput device properties.
// Where none can be read: right-handed, natural scrolling off. Lives on the GUI thread.
class PointerPreferences final : public QObject
{
    Q_OBJECT

public:
    struct Values
    {
        bool leftHanded = false;
        bool naturalScroll = false;
        // Where they were read: "GSettings", "kcminputrc", "sway", "X11", or "none".
        QString source;
        friend bool operator==(const Values &, const Values &) = default;
    };

    explicit PointerPreferences(QObject *parent = nullptr);
    explicit PointerPreferences(const Session &session, QObject *parent = nullptr);
    ~PointerPreferences() override;

    Values current() const { return m_values; }

    // kcminputrc's text. Plasma 6 (and Plasma 5 on Wayland) keeps one group per device,
    // [Libinput][vendor][product][name] with LeftHanded / NaturalScroll, written only when changed
    // from the device's default; Plasma 5 on X11 keeps [Mouse] XLbInptLeftHanded /
    // XLbInptNaturalScroll; older evdev-era Plasma [Mouse] MouseButtonMapping=LeftHanded and
    // ReverseScrollPolarity. Per-device groups win; touchpads are not mice and are skipped.
    static Values fromKcmInput(QByteArrayView text);
    // sway's get_inputs reply: pointer devices' libinput.left_handed / natural_scroll ("enabled").
    static Values fromSwayInputs(const QJsonDocument &inputs);

Q_SIGNALS:
    // The values differ from what current() returned before.
    void changed();

private:
    class GSettingsSource;
    class KdeSource;
    class SwaySource;
    class X11Source;

    void publish(Values values);

    Values m_values;
    std::unique_ptr<GSettingsSource> m_gsettings;
    std::unique_ptr<KdeSource> m_kde;
    std::unique_ptr<SwaySource> m_sway;
    std::unique_ptr<X11Source> m_x11;
    bool m_logged = false;
};

} // namespace kestrix
