// The update reply's decoding rules that the end-to-end cases of tests/updates do not reach, the
// build version in AppInfo, the server address overrides, and installer downloads against a real
// HTTP server on 127.0.0.1 that replace a file, save an error page as it is, or are cut short and
// keep the older file.

#include "net/UpdateRequest.h"
#include "net/AppInfo.h"
#include "net/InstallerDownload.h"
#include "net/Network.h"

#include "core/Log.h"
#include "net/LocalHttpServer.h"

#include <QDir>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

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

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        m_downloads = m_home.filePath(u"My Downloads"_s);
        setDownloadsFolder(m_downloads);
    }

    void appInfoAgreesWithTheBuildVersion()
    {
        const QLatin1StringView buildVersion(KESTRIX_PROJECT_VERSION);
        QCOMPARE(AppInfo::version, buildVersion);
        QCOMPARE(AppInfo::displayLine, "Kestrix v"_L1 + buildVersion);
        QCOMPARE(AppInfo::updateQuery, "/checkUpdate/?v="_L1 + buildVersion);
    }

    // The rules the end-to-end cases do not reach: each of these bodies is refused as a whole.
    void refusesABodyAgainstTheReplyRules_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("updateAvailable missing") << json("{'latestVersion':'1.2'}");
        QTest::newRow("updateAvailable a number") << json("{'updateAvailable':1,'latestVersion':'1.2'}");
        QTest::newRow("latestVersion a number") << json("{'updateAvailable':true,'latestVersion':1.2}");
        QTest::newRow("downloadUrl a number")
            << json("{'updateAvailable':true,'latestVersion':'1.2','downloadUrl':42}");
        QTest::newRow("releaseNotes a list")
            << json("{'updateAvailable':true,'latestVersion':'1.2','releaseNotes':['a']}");
        QTest::newRow("keys in another case") << json("{'update_available':true,'latest_version':'1.2'}");
    }

    void refusesABodyAgainstTheReplyRules()
    {
        QFETCH(QByteArray, body);
        const UpdateResult result = decodeUpdateResponse(body);
        const auto *error = std::get_if<UpdateError>(&result);
        QVERIFY(error != nullptr && error->kind == UpdateError::Kind::Undecodable);
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

    void downloadSavesWhatTheServerSent_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("fileName"); // in the Downloads folder

        QByteArray image(qsizetype(256) * 1024, '\0'); // more than one read's worth
        for (qsizetype i = 0; i < image.size(); ++i)
            image[i] = char(i * 7 % 251);
        QTest::newRow("installer replaces an older file, query left out")
            << QByteArray("/files/Kestrix.dmg?token=ab") << 200 << image << u"Kestrix.dmg"_s;
        QTest::newRow("error page saved as it is, escapes decoded")
            << QByteArray("/files/Kestrix%201.2.dmg") << 404 << QByteArray("<html>Not Found</html>")
            << u"Kestrix 1.2.dmg"_s;
        QTest::newRow("empty body, an encoded slash stays inside the folder")
            << QByteArray("/files/a%2F..%2Fevil") << 200 << QByteArray() << u"evil"_s;
    }

    void downloadSavesWhatTheServerSent()
    {
        QFETCH(QByteArray, path);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, fileName);
        const QUrl url = m_server.url(path.constData());
        m_server.setResponse(url.path(QUrl::FullyEncoded).toLatin1(), { status, body });
        // The folder does not exist yet: finding the destination creates it.
        QVERIFY(QDir(m_downloads).removeRecursively());
        const QString destination = InstallerDownload::destinationFor(url);
        QCOMPARE(destination, m_downloads + u'/' + fileName);
        writeFile(destination, "an older download");

        QStringList saved;
        InstallerDownload::download(url, [&saved](const QString &file) { saved << file; });
        QTRY_COMPARE(saved, QStringList { destination });
        QCOMPARE(readFile(destination), body);
        // Nothing left behind beside the file.
        QTRY_COMPARE(QDir(m_downloads).entryList(QDir::Files), QStringList { fileName });
    }

    void downloadCutShortKeepsTheOldFile()
    {
        m_server.setResponse("/files/Hangs.dmg", { 200, "new", HttpResponse::Hang });
        const QString destination = m_downloads + "/Hangs.dmg"_L1;
        writeFile(destination, "an older download");
        const QStringList before = QDir(m_downloads).entryList(QDir::Files);

        QSignalSpy received(&m_server, &LocalHttpServer::requestReceived);
        QSignalSpy finished(&Network::manager(), &QNetworkAccessManager::finished);
        bool saved = false;
        InstallerDownload::download(m_server.url("/files/Hangs.dmg"), [&saved](const QString &) { saved = true; });
        QVERIFY(received.wait());
        m_server.setResponse("/files/Hangs.dmg", { 200, {}, HttpResponse::Close });
        m_server.closeUnanswered();
        QTRY_COMPARE(finished.size(), 1);

        QVERIFY(!saved);
        QCOMPARE(readFile(destination), QByteArray("an older download"));
        QTRY_COMPARE(QDir(m_downloads).entryList(QDir::Files), before);
    }
};

QTEST_GUILESS_MAIN(UpdateRequestTest)
#include "UpdateRequestTest.moc"
