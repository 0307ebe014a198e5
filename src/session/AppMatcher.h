#pragma once

#include "session/WindowApp.h"

#include <QJsonValue>
#include <QStringList>

// The apps in which the trigger button is left alone. A pattern is an app id or window class,
// compared without regard to case; a trailing '*' makes it a prefix ("steam_app_*").
namespace kestrix::AppMatcher {

bool matches(const QStringList &patterns, const QString &appIdOrClass);

// An app is excluded when either of its names matches (on X11 users know the class from one tool
// and the instance from another, and both are shown as "the app").
bool isExcluded(const QStringList &patterns, const WindowApp &app);

// Remote-desktop viewers, whose remote side owns the right-drag, and games started through Steam.
QStringList defaultPatterns();

// The patterns stored under the `excludedApps` setting: absent means the default list; an array
// gives its non-empty strings; anything else is logged once and read as the default list.
QStringList patternsFromSetting(const QJsonValue &value);

} // namespace kestrix::AppMatcher
