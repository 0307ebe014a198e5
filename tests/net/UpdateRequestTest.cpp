// The update reply's decoding rules that the end-to-end cases of tests/updates do not reach, the
// build version in AppInfo, the server address overrides, and, against a real HTTP server on
// 127.0.0.1, what a hostile or broken server can do: replies without bounds, headers that say
// nothing about the user, downloads that are cut short or stall (the older file kept), and names
// that would reach outside the Downloads folder.

#include "net/UpdateRequest.h"
#include "net/AppInfo.h"
#include "net/InstallerDownload.h"
#include "net/Network.h"

#include "core/TestSupport.h"
#include "net/LocalHttpServer.h"

#include <QDir>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <optional>
#include <tuple>
#include <variant>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

class UpdateRequestTest : public QObject
{
    Q_OBJECT

    LocalHttpServer m_server { "KESTRIX_UPDATE_BASE_URL" };
    QTemporaryDir m_home;
    QString m_downloads;

    // Nothing about the user: Qt adds only Host and Connection of its own.
    static void expectPlainHeaders(const HttpRequest &request)
    {
        QList<QByteArray> names = request.headers.keys();
        std::sort(names.begin(), names.end());
        QCOMPARE(
            names, (QList<QByteArray> { "accept-encoding", "accept-language", "connection", "host", "user-agent" }));
        QCOMPARE(request.headers.value("user-agent") + ' ' + request.headers.value("accept-language") + ' '
                + request.headers.value("accept-encoding"),
            QByteArray("Kestrix/1.0.1 * identity"));
    }

    static UpdateResult fetch(UpdateRequest::Limits limits = {})
    {
        std::optional<UpdateResult> result;
        UpdateRequest::fetchUpdate([&result](const UpdateResult &r) { result = r; }, limits);
        if (!QTest::qWaitFor([&result] { return result.has_value(); }, 60000))
            qFatal("the update check never ended");
        return *result;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        qputenv("HOME", m_home.path().toUtf8());
        m_downloads = m_home.filePath(u"My Downloads"_s);
        setDownloadsFolder(m_downloads);
    }

    // A reply past 1 MiB, or one that takes longer than the time-out, is no answer; a cookie it sets
    // is never sent back.
    void updateReplyWithinBounds()
    {
        // Exactly 1 MiB, 1 MiB and a byte, endless, never answering; a time-out of 0 is the real limit.
        const QByteArray reply = json("{'updateAvailable':false,'latestVersion':'1.0.1'}");
        const qsizetype mib = qsizetype(1) << 20;
        const std::tuple<HttpResponse::Behaviour, QByteArray, int, bool> rows[]
            = { { HttpResponse::Answer, reply.leftJustified(mib, ' '), 0, true },
                  { HttpResponse::Answer, reply.leftJustified(mib + 1, ' '), 0, false },
                  { HttpResponse::Endless, QByteArray(64 * 1024, ' '), 0, false },
                  { HttpResponse::Hang, {}, 300, false } };
        for (const auto &[behaviour, body, timeoutMs, answered] : rows) {
            const Row row { u"%1 %2"_s.arg(int(behaviour)).arg(body.size()) };
            m_server.requests.clear();
            m_server.setResponse("/checkUpdate/", { 200, body, behaviour, "Set-Cookie: id=tracked; Path=/\r\n" });
            UpdateRequest::Limits limits;
            if (timeoutMs > 0)
                limits.timeout = std::chrono::milliseconds(timeoutMs);
            const UpdateResult result = fetch(limits);
            m_server.closeUnanswered();
            const auto *error = std::get_if<UpdateError>(&result);
            QCOMPARE(error == nullptr, answered);
            if (error != nullptr)
                QCOMPARE(error->kind, UpdateError::Kind::Transport);
            m_server.setResponse("/checkUpdate/", { 200, "{}" });
            fetch(); // again, after the cookie was offered
            QVERIFY(m_server.requests.size() >= 2);
            for (const HttpRequest &request : std::as_const(m_server.requests))
                expectPlainHeaders(request);
        }
    }

    // The rules the end-to-end cases do not reach: each of these bodies is refused as a whole.
    void refusesABodyAgainstTheReplyRules()
    {
        // updateAvailable missing or a number, latestVersion a number, downloadUrl a number,
        // releaseNotes a list, empty, keys in another case.
        for (const char *body : { "{'latestVersion':'1.2'}", "{'updateAvailable':1,'latestVersion':'1.2'}",
                 "{'updateAvailable':true,'latestVersion':1.2}",
                 "{'updateAvailable':true,'latestVersion':'1.2','downloadUrl':42}",
                 "{'updateAvailable':true,'latestVersion':'1.2','releaseNotes':['a']}", "",
                 "{'update_available':true,'latest_version':'1.2'}" }) {
            const UpdateResult result = decodeUpdateResponse(json(body));
            const auto *error = std::get_if<UpdateError>(&result);
            QVERIFY2(error != nullptr && error->kind == UpdateError::Kind::Undecodable, body);
        }
    }

    void baseAddressOverride()
    {
        // The joined check address, or "refused".
        const std::pair<QByteArray, QString> rows[] = {
            { {}, u"https://kestrix.orvane.com/checkUpdate/?v=1.0.1"_s }, // unset: the web site
            { "https://updates.example.org/kestrix/", u"https://updates.example.org/kestrix/checkUpdate/?v=1.0.1"_s },
            { "127.0.0.1:8080", u"refused"_s }, { "ftp://127.0.0.1", u"refused"_s }
        };
        for (const auto &[value, expected] : rows) {
            LogLines lines;
            qputenv("KESTRIX_TEST_BASE_URL", value);
            const QUrl url
                = Network::joinUrl(Network::baseUrl("KESTRIX_TEST_BASE_URL", AppInfo::website), AppInfo::updateQuery);
            qunsetenv("KESTRIX_TEST_BASE_URL");

            QCOMPARE(url.isValid() ? url.toString() : u"refused"_s, expected);
            // A refused override says so, naming the variable and the value.
            QCOMPARE(lines.size(), url.isValid() ? 0 : 1);
            if (!url.isValid())
                QVERIFY(lines.first().startsWith("[Kestrix] KESTRIX_TEST_BASE_URL ignored"_L1)
                    && lines.first().contains(QString::fromUtf8(value)));
        }
    }

    // The installer lands in the Downloads folder under the name in its address, replacing an older
    // file whatever the status. Nothing but a regular file of Kestrix's own lands there, and nothing
    // outside it changes: a link of the destination's name is replaced, never written through; a
    // hidden name is refused before anything is sent. A download cut short or stalled leaves the older
    // file as it was, and no partial file.
    void downloadStaysInsideDownloads()
    {
        QByteArray image(qsizetype(256) * 1024, '\0'); // more than one read's worth
        for (qsizetype i = 0; i < image.size(); ++i)
            image[i] = char(i * 7 % 251);
        const QString older = u"older"_s;
        // What stands at the destination before: an older download, a link to the user's file outside
        // or to none; the file's name ("" refused). The query is left out,
        // an error page saved as it is, escapes decoded, and an encoded slash stays inside the folder;
        // a hidden name, plain and encoded; the connection dropped mid-body, then no data for the
        // stall limit.
        const struct
        {
            QByteArray path;
            HttpResponse reply;
            QString before, fileName;
        } rows[] = { { "/files/Kestrix.dmg?token=ab", { 200, image }, older, u"Kestrix.dmg"_s },
            { "/files/Kestrix%201.2.dmg", { 404, "<html>Not Found</html>" }, older, u"Kestrix 1.2.dmg"_s },
            { "/files/a%2F..%2Fevil", { 200, {} }, older, u"evil"_s },
            { "/files/Kestrix.dmg", { 200, "the new image" }, u"victim"_s, u"Kestrix.dmg"_s },
            { "/files/Kestrix.dmg", { 200, "the new image" }, u"absent"_s, u"Kestrix.dmg"_s },
            { "/files/.bashrc", { 200, "x" }, {}, {} }, { "/files/%2Eprofile", { 200, "x" }, {}, {} },
            { "/files/Fails.dmg", { 200, "the first part", HttpResponse::Truncate }, older, u"Fails.dmg"_s },
            { "/files/Fails.dmg", { 200, "the first part", HttpResponse::Stall }, older, u"Fails.dmg"_s } };
        for (const auto &[path, reply, before, fileName] : rows) {
            const bool saved = reply.behaviour == HttpResponse::Answer;
            const Row row { QString::fromLatin1(path) + u' ' + before + u' ' + QString::number(reply.behaviour) };
            const QString outside = m_home.filePath(u"outside"_s);
            QVERIFY(QDir(outside).removeRecursively() && QDir().mkpath(outside));
            writeFile(outside + "/victim"_L1, "the user's own file");
            const QUrl url = m_server.url(path.constData());
            m_server.setResponse(url.path(QUrl::FullyEncoded).toLatin1(), reply);
            // The folder does not exist yet: finding the destination creates it.
            QVERIFY(QDir(m_downloads).removeRecursively());
            const QString destination = InstallerDownload::destinationFor(url);
            QCOMPARE(destination, fileName.isEmpty() ? QString() : m_downloads + u'/' + fileName);
            if (before == older)
                writeFile(destination, "an older download");
            else if (!before.isEmpty())
                QVERIFY(QFile::link(outside + u'/' + before, destination));

            m_server.requests.clear();
            LogLines lines;
            QStringList savedAs;
            QSignalSpy finished(&Network::manager(), &QNetworkAccessManager::finished);
            InstallerDownload::download(
                url, [&savedAs](const QString &file) { savedAs << file; },
                std::chrono::milliseconds(reply.behaviour == HttpResponse::Stall ? 300 : 60000));
            if (fileName.isEmpty()) {
                QTest::qWait(200);
                QVERIFY(savedAs.isEmpty() && m_server.requests.isEmpty());
                QCOMPARE(lines.size(), 1);
            } else {
                QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
                m_server.closeUnanswered();
                expectPlainHeaders(m_server.requests.constFirst());
                QTRY_COMPARE(savedAs, saved ? QStringList { destination } : QStringList());
                QVERIFY(!QFileInfo(destination).isSymLink());
                QCOMPARE(readFile(destination), saved ? reply.body : QByteArray("an older download"));
            }
            QCOMPARE(QDir(outside).entryList(QDir::Files), QStringList { u"victim"_s });
            QCOMPARE(readFile(outside + "/victim"_L1), QByteArray("the user's own file"));
            QTRY_COMPARE(QDir(m_downloads).entryList(QDir::Files | QDir::Hidden | QDir::System),
                fileName.isEmpty() ? QStringList() : QStringList { fileName });
        }
    }

    // xdg-user-dirs names the home folder itself when Downloads is missing.
    void homeFolderIsNeverTheDownloadsFolder()
    {
        const QString home = m_home.path();
        QDir(home + "/Downloads"_L1).removeRecursively();
        for (const QString &named : { home, home + "/."_L1, u"$HOME"_s }) {
            setDownloadsFolder(named);
            QCOMPARE(InstallerDownload::downloadsFolder(), home + "/Downloads"_L1);
            QVERIFY(QFileInfo(home + "/Downloads"_L1).isDir());
        }
        setDownloadsFolder(m_downloads);
    }
};

QTEST_GUILESS_MAIN(UpdateRequestTest)
#include "UpdateRequestTest.moc"
