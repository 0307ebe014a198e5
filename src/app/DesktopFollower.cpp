#include "app/DesktopFollower.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "linux/InputThread.h"
#include "session/AppMatcher.h"

namespace kestrix {

DesktopFollower::DesktopFollower(InputThread &input, const Session &session, QObject *parent)
    : QObject(parent)
    , m_input(input)
    , m_pointerPreferences(session)
    , m_appUnderPointer(session)
{
    followPointerPreferences();
    followApp();
    connect(&m_pointerPreferences, &PointerPreferences::changed, this, &DesktopFollower::followPointerPreferences);
    connect(&m_appUnderPointer, &AppUnderPointer::changed, this, &DesktopFollower::followApp);
    connect(&SettingsStore::shared(), &SettingsStore::changed, this, &DesktopFollower::followApp);
}

void DesktopFollower::followPointerPreferences()
{
    const PointerPreferences::Values values = m_pointerPreferences.current();
    m_input.setDesktopPointer(values.leftHanded, values.naturalScroll);
}

void DesktopFollower::followApp()
{
    const QStringList patterns
        = AppMatcher::patternsFromSetting(SettingsStore::shared().value(SettingsKeys::excludedApps));
    m_input.setPointerOverExcludedApp(AppMatcher::isExcluded(patterns, m_appUnderPointer.current()));
}

} // namespace kestrix
