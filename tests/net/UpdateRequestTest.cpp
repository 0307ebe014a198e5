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

    void downloadSavesWhatTheServerSent()
    {
        QByteArray image(qsizetype(256) * 1024, '\0'); // more than one read's worth
        for (qsizetype i = 0; i < image.size(); ++i)
            image[i] = char(i * 7 % 251);
        // The file name in the Downloads folder: an installer replaces an older file, the query left
        // out; an error page is saved as it is, escapes decoded; an empty body, and an encoded slash
        // stays inside the folder.
        const std::tuple<QByteArray, int, QByteArray, QString> rows[]
            = { { "/files/Kestrix.dmg?token=ab", 200, image, u"Kestrix.dmg"_s },
                  { "/files/Kestrix%201.2.dmg", 404, "<html>Not Found</html>", u"Kestrix 1.2.dmg"_s },
                  { "/files/a%2F..%2Fevil", 200, {}, u"evil"_s } };
        for (const auto &[path, status, body, fileName] : rows) {
            const Row row { fileName };
            const QUrl url = m_server.url(path.constData());
            m_server.setResponse(url.path(QUrl::FullyEncoded).toLatin1(), { status, body });
            // The folder does not exist yet: finding the destination creates it.
            QVERIFY(QDir(m_downloads).removeRecursively());
            const QString destination = InstallerDownload::destinationFor(url);
            QCOMPARE(destination, m_downloads + u'/' + fileName);
            writeFile(destination, "an older download");

            m_server.requests.clear();
            QStringList saved;
            InstallerDownload::download(url, [&saved](const QString &file) { saved << file; });
            QTRY_COMPARE(saved, QStringList { destination });
            QCOMPARE(readFile(destination), body);
            expectPlainHeaders(m_server.requests.constFirst());
            // Nothing left behind beside the file.
            QTRY_COMPARE(QDir(m_downloads).entryList(QDir::Files), QStringList { fileName });
        }
    }

    // Nothing but a regular file of Kestrix's own lands in the Downloads folder, and nothing outside it
    // changes: a link of the destination's name is replaced, never written through; a hidden name is
    // refused before anything is sent.
    void downloadStaysInsideDownloads()
    {
        // The destination a link to a file outside, or to none yet ("" none); a hidden name, plain
        // and encoded.
        const std::tuple<QByteArray, QString, bool> rows[] = { { "Kestrix.dmg", u"victim"_s, true },
            { "Kestrix.dmg", u"absent"_s, true }, { ".bashrc", {}, false }, { "%2Eprofile", {}, false } };
        for (const auto &[name, linkTo, saved] : rows) {
            const Row row { QString::fromLatin1(name) + u' ' + linkTo };
            const QString outside = m_home.filePath(u"outside"_s);
            QVERIFY(QDir(outside).removeRecursively() && QDir().mkpath(outside));
            writeFile(outside + "/victim"_L1, "the user's own file");
            QVERIFY(QDir(m_downloads).removeRecursively() && QDir().mkpath(m_downloads));
            const QString destination = m_downloads + "/Kestrix.dmg"_L1;
            if (!linkTo.isEmpty())
                QVERIFY(QFile::link(outside + u'/' + linkTo, destination));
            m_server.setResponse("/files/" + name, { 200, "the new image" });
            m_server.requests.clear();
            LogLines lines;
            QStringList savedAs;
            InstallerDownload::download(
                m_server.url("/files/" + name), [&savedAs](const QString &file) { savedAs << file; });
            if (saved) {
                QTRY_COMPARE(savedAs, QStringList { destination });
                QVERIFY(!QFileInfo(destination).isSymLink());
                QCOMPARE(readFile(destination), QByteArray("the new image"));
            } else {
                QTest::qWait(200);
                QVERIFY(savedAs.isEmpty() && m_server.requests.isEmpty());
                QCOMPARE(lines.size(), 1);
            }
            QCOMPARE(QDir(outside).entryList(QDir::Files), QStringList { u"victim"_s });
            QCOMPARE(readFile(outside + "/victim"_L1), QByteArray("the user's own file"));
            QTRY_COMPARE(QDir(m_downloads).entryList(QDir::Files | QDir::Hidden | QDir::System),
                saved ? QStringList { u"Kestrix.dmg"_s } : QStringList());
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

    // A download cut short or stalled leaves the older file as it was, and no partial file.
    void downloadThatFailsKeepsTheOldFile()
    {
        // The connection dropped mid-body, then no data for the stall limit.
        for (const HttpResponse::Behaviour behaviour : { HttpResponse::Truncate, HttpResponse::Stall }) {
            const Row row { QString::number(int(behaviour)) };
            QVERIFY(QDir().mkpath(m_downloads));
            m_server.setResponse("/files/Fails.dmg", { 200, "the first part", behaviour });
            const QString destination = m_downloads + "/Fails.dmg"_L1;
            writeFile(destination, "an older download");
            const QStringList before = QDir(m_downloads).entryList(QDir::Files | QDir::Hidden);

            QSignalSpy finished(&Network::manager(), &QNetworkAccessManager::finished);
            bool saved = false;
            InstallerDownload::download(
                m_server.url("/files/Fails.dmg"), [&saved](const QString &) { saved = true; },
                std::chrono::milliseconds(300));
            QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
            m_server.closeUnanswered();

            QVERIFY(!saved);
            QCOMPARE(readFile(destination), QByteArray("an older download"));
            QTRY_COMPARE(QDir(m_downloads).entryList(QDir::Files | QDir::Hidden), before);
        }
    }
};

QTEST_GUILESS_MAIN(UpdateRequestTest)
#include "UpdateRequestTest.moc"
