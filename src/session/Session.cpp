#include "session/Session.h"

#include <QStringList>

namespace kestrix {

Session Session::fromEnvironment(const QProcessEnvironment &environment)
{
    Session session;
    session.wayland = !environment.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty();
    session.x11Display = environment.value(QStringLiteral("DISPLAY")).toLocal8Bit();
    session.swaySocket = environment.value(QStringLiteral("SWAYSOCK"));

    // XDG_CURRENT_DESKTOP is a colon-separated list, most specific first ("ubuntu:GNOME").
    const QStringList desktops
        = environment.value(QStringLiteral("XDG_CURRENT_DESKTOP")).split(u':', Qt::SkipEmptyParts);
    const auto names = [&](std::initializer_list<QLatin1StringView> wanted) {
        for (const QString &desktop : desktops) {
            for (QLatin1StringView name : wanted) {
                if (desktop.compare(name, Qt::CaseInsensitive) == 0)
                    return true;
            }
        }
        return false;
    };
    // Desktops built on GNOME's settings daemon keep the mouse switches in GNOME's schema.
    using namespace Qt::StringLiterals;
    if (names({ "sway"_L1 }) || (!session.swaySocket.isEmpty() && desktops.isEmpty()))
        session.desktop = Desktop::Sway;
    else if (names({ "GNOME"_L1, "Unity"_L1, "Budgie"_L1, "Pantheon"_L1 }))
        session.desktop = Desktop::Gnome;
    else if (names({ "KDE"_L1 }))
        session.desktop = Desktop::Kde;
    return session;
}

} // namespace kestrix
