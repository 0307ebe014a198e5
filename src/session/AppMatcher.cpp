#include "session/AppMatcher.h"

#include "core/Log.h"

#include <QJsonArray>

namespace kestrix::AppMatcher {

using namespace Qt::StringLiterals;

bool matches(const QStringList &patterns, const QString &appIdOrClass)
{
    const QString name = appIdOrClass.trimmed();
    if (name.isEmpty())
        return false;
    for (const QString &raw : patterns) {
        const QStringView pattern = QStringView(raw).trimmed();
        if (pattern.isEmpty())
            continue;
        if (pattern.endsWith(u'*')) {
            if (name.startsWith(pattern.chopped(1), Qt::CaseInsensitive))
                return true;
        } else if (name.compare(pattern, Qt::CaseInsensitive) == 0) {
            return true;
        }
    }
    return false;
}

bool isExcluded(const QStringList &patterns, const WindowApp &app)
{
    return matches(patterns, app.appId) || matches(patterns, app.instance);
}

QStringList defaultPatterns()
{
    return {
        u"org.remmina.Remmina"_s,
        u"remmina"_s,
        u"virt-viewer"_s,
        u"remote-viewer"_s,
        u"xfreerdp"_s,
        u"wlfreerdp"_s,
        u"sdl-freerdp"_s,
        // TigerVNC's viewer names its windows "vncviewer" (FLTK turns it into the class "Vncviewer").
        u"vncviewer"_s,
        u"steam_app_*"_s,
    };
}

QStringList patternsFromSetting(const QJsonValue &value)
{
    if (value.isUndefined())
        return defaultPatterns();
    if (!value.isArray()) {
        Log::write("[Kestrix] excludedApps is not a list of app names; the default list is used");
        return defaultPatterns();
    }
    QStringList patterns;
    for (const QJsonValue item : value.toArray()) {
        const QString pattern = item.toString().trimmed();
        if (!pattern.isEmpty())
            patterns.append(pattern);
    }
    return patterns;
}

} // namespace kestrix::AppMatcher
