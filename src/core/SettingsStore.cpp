#include "SettingsStore.h"

#include "Log.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>
#include <QStandardPaths>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {
void logLine(const QString &line) { Log::write(line.toStdString()); }
} // namespace

SettingsStore::SettingsStore(QString filePath, QObject *parent)
    : QObject(parent)
    , m_filePath(std::move(filePath))
    , m_watcher(new QFileSystemWatcher(this))
{
    // Editors save by writing a new file and renaming it over the old one, which ends a watch on
    // the file itself; the folder's watch sees the new file appear.
    connect(m_watcher, &QFileSystemWatcher::fileChanged, this, &SettingsStore::reload);
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, &SettingsStore::reload);
    reload();
}

SettingsStore::~SettingsStore() = default;

SettingsStore &SettingsStore::shared()
{
    // Deliberately never destroyed: the store outlives every reader, the application object
    // included, and its watcher must not be torn down after the event loop is gone.
    static auto *store = new SettingsStore(defaultFilePath());
    return *store;
}

QString SettingsStore::defaultFilePath()
{
    const QString configHome = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return configHome + "/kestrix/settings.json"_L1;
}

std::optional<bool> SettingsStore::boolValue(QLatin1StringView key) const
{
    const QJsonValue stored = m_values.value(key);
    if (!stored.isBool())
        return std::nullopt;
    return stored.toBool();
}

std::optional<QString> SettingsStore::stringValue(QLatin1StringView key) const
{
    const QJsonValue stored = m_values.value(key);
    if (!stored.isString())
        return std::nullopt;
    return stored.toString();
}

double SettingsStore::doubleValue(QLatin1StringView key) const
{
    const QJsonValue stored = m_values.value(key);
    if (stored.isDouble())
        return stored.toDouble();
    if (stored.isString()) {
        bool isNumber = false;
        const double number = stored.toString().trimmed().toDouble(&isNumber);
        return isNumber ? number : 0.0;
    }
    return 0.0;
}

void SettingsStore::setValue(QLatin1StringView key, const QJsonValue &value)
{
    if (m_values.value(key) == value && m_values.contains(key))
        return;
    m_values.insert(key, value);
    save();
    Q_EMIT changed();
}

void SettingsStore::remove(QLatin1StringView key)
{
    if (!m_values.contains(key))
        return;
    m_values.remove(key);
    save();
    Q_EMIT changed();
}

void SettingsStore::clear()
{
    if (m_values.isEmpty())
        return;
    m_values = QJsonObject();
    save();
    Q_EMIT changed();
}

void SettingsStore::reload()
{
    QFile file(m_filePath);
    QJsonObject loaded;
    m_saveBlocked = false;
    if (file.open(QIODevice::ReadOnly)) {
        const QByteArray bytes = file.readAll();
        file.close();
        // An empty file is an editor half-way through saving, or a user who emptied it: no values,
        // nothing to set aside.
        if (!bytes.trimmed().isEmpty()) {
            QJsonParseError error {};
            const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
            if (error.error != QJsonParseError::NoError) {
                setAsideUnreadableFile(error.errorString() + " at offset "_L1 + QString::number(error.offset));
            } else if (!document.isObject()) {
                setAsideUnreadableFile(u"the top level is not a JSON object"_s);
            } else {
                loaded = document.object();
            }
        }
    }
    watchFile();
    if (loaded == m_values)
        return;
    m_values = loaded;
    Q_EMIT changed();
}

void SettingsStore::save()
{
    if (m_saveBlocked) {
        logLine(u"[Kestrix] Settings file "_s + m_filePath
            + u" is unreadable and was not replaced; the change is kept until quit"_s);
        return;
    }
    const QFileInfo info(m_filePath);
    if (!QDir().mkpath(info.absolutePath())) {
        logLine(u"[Kestrix] Settings folder "_s + info.absolutePath()
            + u" cannot be created; the change is kept until quit"_s);
        return;
    }
    QSaveFile file(m_filePath);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(m_values).toJson(QJsonDocument::Indented)) < 0
        || !file.commit()) {
        logLine(u"[Kestrix] Settings file "_s + m_filePath + u" cannot be written ("_s + file.errorString()
            + u"); the change is kept until quit"_s);
    }
    watchFile();
}

void SettingsStore::watchFile()
{
    const QFileInfo info(m_filePath);
    if (info.absoluteDir().exists() && !m_watcher->directories().contains(info.absolutePath()))
        m_watcher->addPath(info.absolutePath());
    if (info.exists() && !m_watcher->files().contains(m_filePath))
        m_watcher->addPath(m_filePath);
}

void SettingsStore::setAsideUnreadableFile(const QString &reason)
{
    const QString stamp = QDateTime::currentDateTime().toString(u"yyyyMMdd-HHmmss"_s);
    QString aside = m_filePath + ".broken-"_L1 + stamp;
    for (int n = 2; QFileInfo::exists(aside); ++n)
        aside = m_filePath + ".broken-"_L1 + stamp + u'-' + QString::number(n);

    const bool moved = QFile::rename(m_filePath, aside);
    const QString outcome = moved ? "moved to "_L1 + aside : "left in place, unreadable"_L1;
    logLine(u"[Kestrix] Settings file "_s + m_filePath + u" cannot be read ("_s + reason + u"); it was "_s + outcome
        + u" and defaults are in use"_s);
    // A file that could not be moved aside must not be overwritten by the next write either.
    m_saveBlocked = !moved;
}

} // namespace kestrix
