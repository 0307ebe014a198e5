// The update reply's decoding rules as a table (tests/updates runs them end to end), the server
// address overrides, and installer downloads against a real HTTP server on 127.0.0.1 that replace
// a file, save an error page as it is, or are cut short and keep the older file.

#include "net/UpdateRequest.h"
#include "net/AppInfo.h"
#include "net/InstallerDownload.h"
#include "net/Network.h"

#include "core/Log.h"
#include "net/LocalHttpServer.h"

#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

// One line per outcome, so a table row reads as what the user's copy of Kestrix would conclude.
QString describe(const UpdateResult &result)
{
    if (const auto *error = std::get_if<UpdateError>(&result))
        return error->kind == UpdateError::Kind::Transport ? u"transport failure"_s : u"undecodable"_s;
    const auto &response = std::get<UpdateResponse>(result);
    const auto optional
        = [](const std::optional<QString> &value) { return value ? u"\""_s + *value + u"\""_s : u"absent"_s; };
    return (response.updateAvailable ? u"available "_s : u"not available "_s) + response.latestVersion + u", url "_s
        + optional(response.downloadUrl) + u", notes "_s + optional(response.releaseNotes);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

// JSON written with single quotes, so the tables stay readable.
QByteArray json(const char *text) { return QByteArray(text).replace('\'', '"'); }

} // namespace

class UpdateRequestTest : public QObject
{
    Q_OBJECT

    LocalHttpServer m_server;
    QTemporaryDir m_home;
    QString m_downloads;

private Q_SLOTS:
    void initTestCase()
    {
        // Read once, at first use: set before anything asks.
        qputenv("KESTRIX_UPDATE_BASE_URL", m_server.baseUrl().toEncoded());
        // The Downloads folder comes from the XDG user dirs file, as on a desktop; it does not
        // exist yet, and the download creates it.
        QVERIFY(m_home.isValid());
        m_downloads = m_home.filePath(u"My Downloads"_s);
        const QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
        QVERIFY(!config.isEmpty());
        QVERIFY(QDir().mkpath(config));
        writeFile(config + "/user-dirs.dirs"_L1, "XDG_DOWNLOAD_DIR=\"" + m_downloads.toUtf8() + "\"\n");
    }

    void appInfoAgreesWithTheBuildVersion()
    {
        const QLatin1StringView buildVersion(KESTRIX_PROJECT_VERSION);
        QCOMPARE(AppInfo::version, buildVersion);
        QCOMPARE(AppInfo::displayLine, "Kestrix v"_L1 + buildVersion);
        QCOMPARE(AppInfo::updateQuery, "/checkUpdate/?v="_L1 + buildVersion);
        QCOMPARE(AppInfo::displayName + " v"_L1 + AppInfo::version, AppInfo::displayLine);

        // The web site is a host and nothing more: the update query is appended to it.
        const QUrl website(AppInfo::website, QUrl::StrictMode);
        QCOMPARE(website.scheme(), u"https"_s);
        QVERIFY(website.host().endsWith(u"orvane.com"_s));
        QVERIFY(website.path().isEmpty() && !website.hasQuery());
        QVERIFY(AppInfo::contactEmail.endsWith("@orvane.com"_L1));
    }

    void decodesByTheReplyRules_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("expected");

        QTest::newRow("every field") << json("{'updateAvailable':true,'latestVersion':'1.2',"
                                             "'downloadUrl':'https://kestrix.orvane.com/Kestrix-1.2.dmg',"
                                             "'releaseNotes':'Bug fixes'}")
                                     << u"available 1.2, url \"https://kestrix.orvane.com/Kestrix-1.2.dmg\", "
                                        "notes \"Bug fixes\""_s;
        QTest::newRow("required fields only") << json("{'updateAvailable':false,'latestVersion':'1.0.1'}")
                                              << u"not available 1.0.1, url absent, notes absent"_s;
        QTest::newRow("empty notes are notes")
            << json("{'updateAvailable':true,'latestVersion':'1.2','releaseNotes':''}")
            << u"available 1.2, url absent, notes \"\""_s;
        QTest::newRow("other keys ignored") << json(
            "{'updateAvailable':true,'latestVersion':'1.2','size':123,'mirrors':[{'a':1}],'UpdateAvailable':'x'}")
                                            << u"available 1.2, url absent, notes absent"_s;
        QTest::newRow("text kept as sent")
            << json("{'updateAvailable':true,'latestVersion':'2.0 β','releaseNotes':'  수정\\n\\u200Cfix  '}")
            << u"available 2.0 β, url absent, notes \"  수정\n\u200Cfix  \""_s;

        const QString undecodable = u"undecodable"_s;
        QTest::newRow("updateAvailable missing") << json("{'latestVersion':'1.2'}") << undecodable;
        QTest::newRow("updateAvailable as a number")
            << json("{'updateAvailable':1,'latestVersion':'1.2'}") << undecodable;
        QTest::newRow("updateAvailable null") << json("{'updateAvailable':null,'latestVersion':'1.2'}") << undecodable;
        QTest::newRow("latestVersion as a number")
            << json("{'updateAvailable':true,'latestVersion':1.2}") << undecodable;
        QTest::newRow("latestVersion null") << json("{'updateAvailable':true,'latestVersion':null}") << undecodable;
        QTest::newRow("downloadUrl as a number")
            << json("{'updateAvailable':true,'latestVersion':'1.2','downloadUrl':42}") << undecodable;
        QTest::newRow("releaseNotes as a list")
            << json("{'updateAvailable':true,'latestVersion':'1.2','releaseNotes':['a']}") << undecodable;
        QTest::newRow("keys in another case")
            << json("{'update_available':true,'latest_version':'1.2'}") << undecodable;
        QTest::newRow("top level a list") << json("[{'updateAvailable':true,'latestVersion':'1.2'}]") << undecodable;
    }

    void decodesByTheReplyRules()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, expected);
        QCOMPARE(describe(decodeUpdateResponse(body)), expected);
    }

    void baseAddressOverride_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("expected"); // the joined check address, or "refused"

        QTest::newRow("unset: the web site") << QByteArray() << u"https://kestrix.orvane.com/checkUpdate/?v=1.0.1"_s;
        QTest::newRow("path prefix, trailing slash") << QByteArray("https://updates.example.org/kestrix/")
                                                     << u"https://updates.example.org/kestrix/checkUpdate/?v=1.0.1"_s;
        QTest::newRow("no scheme") << QByteArray("127.0.0.1:8080") << u"refused"_s;
        QTest::newRow("other scheme") << QByteArray("ftp://127.0.0.1") << u"refused"_s;
    }

    void baseAddressOverride()
    {
        QFETCH(QByteArray, value);
        QFETCH(QString, expected);
        QStringList lines;
        Log::setObserver(
            [&lines](std::string_view line) { lines << QString::fromUtf8(line.data(), qsizetype(line.size())); });
        qputenv("KESTRIX_TEST_BASE_URL", value);
        const QUrl url
            = Network::joinUrl(Network::baseUrl("KESTRIX_TEST_BASE_URL", AppInfo::website), AppInfo::updateQuery);
        Log::setObserver(nullptr);
        qunsetenv("KESTRIX_TEST_BASE_URL");

        QCOMPARE(url.isValid() ? url.toString() : u"refused"_s, expected);
        // A refused override says so, naming the variable and the value.
        QCOMPARE(lines.size(), url.isValid() ? 0 : 1);
        if (!url.isValid())
            QVERIFY(lines.first().startsWith("[Kestrix] KESTRIX_TEST_BASE_URL ignored"_L1)
                && lines.first().contains(QString::fromUtf8(value)));
    }

    void downloadDestination_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("fileName"); // empty: no destination

        QTest::newRow("plain") << u"https://kestrix.orvane.com/files/Kestrix-1.2.dmg"_s << u"Kestrix-1.2.dmg"_s;
        QTest::newRow("query left out") << u"https://kestrix.orvane.com/Kestrix.dmg?token=ab"_s << u"Kestrix.dmg"_s;
        QTest::newRow("escapes decoded") << u"https://kestrix.orvane.com/Kestrix%201.2.dmg"_s << u"Kestrix 1.2.dmg"_s;
        QTest::newRow("encoded slash stays inside") << u"https://kestrix.orvane.com/a%2F..%2Fevil"_s << u"evil"_s;
        QTest::newRow("folder") << u"https://kestrix.orvane.com/files/"_s << QString();
        QTest::newRow("parent") << u"https://kestrix.orvane.com/files/.."_s << QString();
    }

    void downloadDestination()
    {
        QFETCH(QString, url);
        QFETCH(QString, fileName);
        const QString destination = InstallerDownload::destinationFor(QUrl(url));
        QCOMPARE(destination, fileName.isEmpty() ? QString() : m_downloads + u'/' + fileName);
        QVERIFY(QFileInfo(m_downloads).isDir()); // created on first use
    }

    void downloadReplacesAFileOrSavesTheErrorPage_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");

        QByteArray image(qsizetype(256) * 1024, '\0');
        for (qsizetype i = 0; i < image.size(); ++i)
            image[i] = char(i * 7 % 251);
        QTest::newRow("installer replaces an older file") << QByteArray("/files/Kestrix.dmg") << 200 << image;
        QTest::newRow("error page saved as it is")
            << QByteArray("/files/Kestrix.dmg") << 404 << QByteArray("<html>Not Found</html>");
        QTest::newRow("empty body") << QByteArray("/files/Kestrix.dmg") << 200 << QByteArray();
    }

    void downloadReplacesAFileOrSavesTheErrorPage()
    {
        QFETCH(QByteArray, path);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        m_server.setResponse(path, HttpResponse { status, body, "application/octet-stream", HttpResponse::Answer });
        const QString destination
            = InstallerDownload::destinationFor(m_server.baseUrl().resolved(QUrl(QString::fromLatin1(path))));
        writeFile(destination, "an older download");

        QStringList saved;
        InstallerDownload::download(m_server.baseUrl().resolved(QUrl(QString::fromLatin1(path))),
            [&saved](const QString &file) { saved << file; });
        QTRY_COMPARE(saved, QStringList { destination });
        QCOMPARE(readFile(destination), body);
        // Nothing left behind beside the file.
        QTRY_COMPARE(QDir(m_downloads).entryList(QDir::Files), QStringList { u"Kestrix.dmg"_s });
    }

    void downloadCutShortKeepsTheOldFile()
    {
        m_server.setResponse(
            "/files/Hangs.dmg", HttpResponse { 200, "new", "application/octet-stream", HttpResponse::Hang });
        const QUrl url = m_server.baseUrl().resolved(QUrl(u"/files/Hangs.dmg"_s));
        const QString destination = InstallerDownload::destinationFor(url);
        writeFile(destination, "an older download");
        const QStringList before = QDir(m_downloads).entryList(QDir::Files);

        QSignalSpy received(&m_server, &LocalHttpServer::requestReceived);
        QSignalSpy finished(&Network::manager(), &QNetworkAccessManager::finished);
        bool saved = false;
        InstallerDownload::download(url, [&saved](const QString &) { saved = true; });
        QVERIFY(received.wait());
        m_server.setResponse("/files/Hangs.dmg", HttpResponse { 200, {}, {}, HttpResponse::Close });
        m_server.closeUnanswered();
        QTRY_COMPARE(finished.size(), 1);

        QVERIFY(!saved);
        QCOMPARE(readFile(destination), QByteArray("an older download"));
        QTRY_COMPARE(QDir(m_downloads).entryList(QDir::Files), before);
    }
};

QTEST_GUILESS_MAIN(UpdateRequestTest)
#include "UpdateRequestTest.moc"
