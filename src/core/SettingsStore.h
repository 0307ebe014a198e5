#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QLatin1StringView>
#include <QObject>
#include <QString>

#include <optional>

class QFileSystemWatcher;

namespace kestrix {

// The per-user settings store: one JSON object in $XDG_CONFIG_HOME/kestrix/settings.json.
//
// JSON keeps the types apart (a Boolean, a number and a string are different values) and tells an
// absent key from a present one, which is what the readers' default rules need.
//
// Reads are lookups in memory: the event path never touches the disk. Every write is saved at once
// through QSaveFile, so a crash leaves either the old file or the new one, never a torn one. The
// file is watched: a value edited by hand while Kestrix runs is read back as soon as the event loop
// sees the change, before the next input event is handled.
//
// A file that cannot be parsed is never overwritten: it is moved aside under a dated name, one line
// is logged, and the store carries on empty, that is on every reader's defaults.
class SettingsStore final : public QObject
{
    Q_OBJECT

public:
    explicit SettingsStore(QString filePath, QObject *parent = nullptr);
    ~SettingsStore() override;

    // The store of this user, opened at first use and kept for the life of the process.
    static SettingsStore &shared();
    // $XDG_CONFIG_HOME/kestrix/settings.json, with ~/.config when XDG_CONFIG_HOME is unset.
    static QString defaultFilePath();

    QString filePath() const { return m_filePath; }

    // Undefined when the key is absent.
    QJsonValue value(QLatin1StringView key) const { return m_values.value(key); }
    bool contains(QLatin1StringView key) const { return m_values.contains(key); }

    // The stored Boolean; nothing when the key is absent or holds anything but a Boolean.
    std::optional<bool> boolValue(QLatin1StringView key) const;
    // The stored string; nothing when the key is absent or holds anything but a string.
    std::optional<QString> stringValue(QLatin1StringView key) const;
    // The stored number; a string holding a number is converted; anything else, and an absent
    // key, reads as 0.
    double doubleValue(QLatin1StringView key) const;

    void setValue(QLatin1StringView key, const QJsonValue &value);
    void remove(QLatin1StringView key);
    // Removes every key (tests start from an empty store with it).
    void clear();

    // Reads the file again. Called by the file watcher; public for tests and for a forced refresh.
    void reload();

Q_SIGNALS:
    // The values changed, by a write of this process or by an edit of the file.
    void changed();

private:
    void save();
    void watchFile();
    void setAsideUnreadableFile(const QString &reason);

    QString m_filePath;
    QJsonObject m_values;
    QFileSystemWatcher *m_watcher = nullptr;
    bool m_saveBlocked = false;
};

} // namespace kestrix
