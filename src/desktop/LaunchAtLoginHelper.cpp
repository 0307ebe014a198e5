#include "desktop/LaunchAtLoginHelper.h"

#include "core/Log.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "desktop/AppIdentity.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include <optional>

namespace kestrix::LaunchAtLoginHelper {

using namespace Qt::StringLiterals;

namespace {

void logError(const QString &description)
{
    Log::write(("[Kestrix] Launch at login error: "_L1 + description).toStdString());
}

// Characters that make a desktop entry's Exec argument need double quotes.
bool needsQuoting(const QString &argument)
{
    static const QString reserved = u" \t\n\"'\\><~|&;$*?#()`"_s;
    for (const QChar c : argument) {
        if (reserved.contains(c))
            return true;
    }
    return argument.isEmpty();
}

// One line of a desktop entry, with the string escapes of the file format undone.
QString unescapeValue(const QString &value)
{
    QString result;
    result.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value.at(i) != u'\\' || i + 1 == value.size()) {
            result += value.at(i);
            continue;
        }
        const QChar next = value.at(++i);
        switch (next.unicode()) {
        case 's':
            result += u' ';
            break;
        case 'n':
            result += u'\n';
            break;
        case 't':
            result += u'\t';
            break;
        case 'r':
            result += u'\r';
            break;
        default:
            result += next;
            break;
        }
    }
    return result;
}

// The keys of the [Desktop Entry] group; nothing when the file cannot be read.
std::optional<QHash<QString, QString>> readDesktopEntry(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return std::nullopt;
    QHash<QString, QString> keys;
    bool inMainGroup = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        if (line.startsWith(u'[')) {
            inMainGroup = line == "[Desktop Entry]"_L1;
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inMainGroup || equals <= 0)
            continue;
        keys.insert(line.left(equals).trimmed(), unescapeValue(line.mid(equals + 1).trimmed()));
    }
    return keys;
}

QString entryText(const QString &program)
{
    // The string escape of the file format doubles every backslash the quoting left in.
    QString exec = execLine(program);
    exec.replace(u'\\', "\\\\"_L1);
    return u"[Desktop Entry]\n"
           "Type=Application\n"
           "Name=%1\n"
           "Comment=Scroll any window by dragging with the right mouse button\n"
           "Exec=%2\n"
           "Icon=%3\n"
           "Terminal=false\n"
           "NoDisplay=true\n"
           "X-GNOME-Autostart-enabled=true\n"_s.arg(AppIdentity::displayName, exec, AppIdentity::identifier);
}

bool isOurs(const QString &program)
{
    if (program.isEmpty())
        return false;
    const QString running = QCoreApplication::applicationFilePath();
    return program == running || QFileInfo(program).fileName() == AppIdentity::executableName;
}

bool write()
{
    const QString path = autostartEntryPath();
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder)) {
        logError(u"cannot create the folder %1"_s.arg(folder));
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        logError(file.errorString());
        return false;
    }
    file.write(entryText(QCoreApplication::applicationFilePath()).toUtf8());
    if (!file.commit()) {
        logError(file.errorString());
        return false;
    }
    return true;
}

bool remove()
{
    QFile file(autostartEntryPath());
    if (!file.exists())
        return true;
    if (!file.remove()) {
        logError(file.errorString());
        return false;
    }
    return true;
}

} // namespace

QString autostartEntryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/autostart/"_L1
        + AppIdentity::identifier + ".desktop"_L1;
}

QString execLine(const QString &program)
{
    // A field code starts with %; a literal percent sign is written twice, quoted or not.
    if (!needsQuoting(program))
        return QString(program).replace(u'%', "%%"_L1);
    QString quoted = u"\""_s;
    for (const QChar c : program) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            quoted += u'\\';
        quoted += c;
    }
    quoted += u'"';
    return quoted.replace(u'%', "%%"_L1);
}

QString execProgram(const QString &execValue)
{
    const QString value = execValue.trimmed();
    QString program;
    if (!value.startsWith(u'"')) {
        program = value.section(u' ', 0, 0);
    } else {
        qsizetype i = 1;
        for (; i < value.size() && value.at(i) != u'"'; ++i) {
            if (value.at(i) == u'\\' && i + 1 < value.size())
                ++i;
            program += value.at(i);
        }
        if (i == value.size())
            return {}; // no closing quote
    }
    program.replace("%%"_L1, "%"_L1);
    return program;
}

void setEnabled(bool enabled)
{
    if (!(enabled ? write() : remove()))
        return;
    SettingsStore::shared().setValue(SettingsKeys::launchAtLogin, enabled);
}

bool isEnabled()
{
    const std::optional<QHash<QString, QString>> entry = readDesktopEntry(autostartEntryPath());
    if (!entry)
        return false;
    if (entry->value(u"Hidden"_s) == "true"_L1 || entry->value(u"X-GNOME-Autostart-enabled"_s) == "false"_L1)
        return false;
    return isOurs(execProgram(entry->value(u"Exec"_s)));
}

} // namespace kestrix::LaunchAtLoginHelper
