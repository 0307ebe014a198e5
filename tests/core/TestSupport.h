#pragma once

// What tests of every layer share: the log lines written meanwhile, and whole files read and written.

#include "core/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QTest>

namespace kestrix::test {

// Every log line written on the test's thread while it lives.
struct LogLines : QStringList
{
    LogLines()
    {
        Log::setObserver(
            [this](std::string_view line) { append(QString::fromUtf8(line.data(), qsizetype(line.size()))); });
    }
    ~LogLines() { Log::setObserver(nullptr); }
    LogLines(const LogLines &) = delete;
    LogLines &operator=(const LogLines &) = delete;
};

// Lives for one row of a table looped over in a test function: when a check in the row fails (and
// returns), names the row.
struct Row
{
    QString name;
    ~Row()
    {
        if (QTest::currentTestFailed())
            qWarning("in row: %s", qPrintable(name));
    }
};

// "<missing>" when it cannot be read.
inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// Creates the folder it goes into as well.
inline void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
}

} // namespace kestrix::test
