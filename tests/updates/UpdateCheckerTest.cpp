// The update check as the user meets it, against a real HTTP server on 127.0.0.1: which alert
// each reply brings in each mode, what the alerts say, what Download does, and a server that never
// answers. Alerts are answered by a timer that finds the modal box, as a user would click it.

#include "updates/UpdateChecker.h"

#include "core/Log.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "l10n/L10n.h"
#include "net/LocalHttpServer.h"
#include "net/Network.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

QByteArray json(const char *text) { return QByteArray(text).replace('\'', '"'); }

struct Alert
{
    QString text, body, defaultButton;
    QStringList buttons;
};

} // namespace

class UpdateCheckerTest : public QObject
{
    Q_OBJECT

    LocalHttpServer m_server;
    QTemporaryDir m_downloads;
    QTimer m_user;
    QString m_click; // the button the user clicks in the next alert; else the escape button
    QList<Alert> m_alerts;
    QList<QUrl> m_opened;
    int m_outcomes = 0;

    // Runs one check and returns once it has concluded, its alert (if any) answered.
    bool runCheck(void (*check)(), const QByteArray &reply, int status = 200)
    {
        m_server.setResponse("/checkUpdate/", { status, reply, "application/json", HttpResponse::Answer });
        const int before = m_outcomes;
        m_alerts.clear();
        check();
        return QTest::qWaitFor([&] { return m_outcomes > before; });
    }

    QStringList kindsOfAlertsShown() const
    {
        QStringList kinds;
        for (const Alert &alert : m_alerts)
            kinds << (alert.text == L10n::updateAvailable() ? u"offer "_s + alert.body.section(u' ', 3, 3)
                                                            : u"no update"_s);
        return kinds;
    }

    bool downloadStarted() const
    {
        const QList<QNetworkReply *> replies = Network::manager().findChildren<QNetworkReply *>();
        return std::any_of(replies.begin(), replies.end(),
                   [](const QNetworkReply *reply) { return reply->url().path().startsWith("/files/"_L1); })
            || std::any_of(m_server.requests.begin(), m_server.requests.end(),
                [](const HttpRequest &request) { return request.target.startsWith("/files/"); });
    }

public Q_SLOTS:
    // The desktop's handler for file URLs while the test runs: nothing is really opened.
    void open(const QUrl &url) { m_opened << url; }

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("KESTRIX_UPDATE_BASE_URL", m_server.baseUrl().toEncoded());
        qputenv("KESTRIX_DEBUG", "1"); // a check's conclusion is a debug line: the one sign of a silent one
        Log::setObserver([this](std::string_view line) {
            if (line.starts_with("[Kestrix] update check: "))
                ++m_outcomes;
        });
        QFile userDirs(qEnvironmentVariable("XDG_CONFIG_HOME") + "/user-dirs.dirs"_L1);
        QVERIFY(QDir().mkpath(qEnvironmentVariable("XDG_CONFIG_HOME")) && userDirs.open(QIODevice::WriteOnly));
        userDirs.write("XDG_DOWNLOAD_DIR=\"" + m_downloads.path().toUtf8() + "\"\n");
        userDirs.close();
        QDesktopServices::setUrlHandler(u"file"_s, this, "open");

        connect(&m_user, &QTimer::timeout, this, [this] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (box == nullptr)
                return;
            Alert alert { box->text(), box->informativeText(), box->defaultButton()->text(), {} };
            QAbstractButton *chosen = box->escapeButton() ? box->escapeButton() : box->buttons().constFirst();
            for (QAbstractButton *button : box->buttons()) {
                alert.buttons << button->text();
                if (button->text() == m_click)
                    chosen = button;
            }
            m_alerts << alert;
            chosen->click();
        });
        m_user.start(10);
    }

    void init()
    {
        SettingsStore::shared().clear();
        m_click.clear();
        m_opened.clear();
        m_server.requests.clear();
        m_alerts.clear();
    }

    void alertForEachReply_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QString>("manual");
        QTest::addColumn<QString>("silent");

        const QByteArray update = json("{'updateAvailable':true,'latestVersion':'1.2'}");
        QTest::newRow("update") << 200 << update << "offer 1.2"
                                << "offer 1.2";
        QTest::newRow("no update") << 200 << json("{'updateAvailable':false,'latestVersion':'1.0.1'}") << "no update"
                                   << "";
        QTest::newRow("HTTP 500, valid body") << 500 << update << "offer 1.2"
                                              << "offer 1.2";
        QTest::newRow("same version offered")
            << 200 << json("{'updateAvailable':true,'latestVersion':'1.0.1'}") << "offer 1.0.1"
            << "offer 1.0.1";
        QTest::newRow("nulls") << 200
                               << json("{'updateAvailable':true,'latestVersion':'1.2','downloadUrl':null,"
                                       "'releaseNotes':null}")
                               << "offer 1.2"
                               << "offer 1.2";
        QTest::newRow("latestVersion missing") << 200 << json("{'updateAvailable':true}") << ""
                                               << "";
        QTest::newRow("updateAvailable a string")
            << 200 << json("{'updateAvailable':'true','latestVersion':'1.2'}") << ""
            << "";
        QTest::newRow("empty body") << 200 << QByteArray() << ""
                                    << "";
        QTest::newRow("not JSON") << 502 << QByteArray("<html>Bad Gateway</html>") << ""
                                  << "";
    }

    void alertForEachReply()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, reply);
        QFETCH(QString, manual);
        QFETCH(QString, silent);

        QVERIFY(runCheck(&UpdateChecker::checkForUpdate, reply, status));
        QCOMPARE(kindsOfAlertsShown().join(u','), manual);
        QVERIFY(runCheck(&UpdateChecker::checkSilently, reply, status));
        QCOMPARE(kindsOfAlertsShown().join(u','), silent);
        QCOMPARE(m_server.requests.size(), 2);
        QCOMPARE(m_server.requests.first().method + ' ' + m_server.requests.first().target,
            QByteArray("GET /checkUpdate/?v=1.0.1"));
        QVERIFY(m_server.requests.first().body.isEmpty());
    }

    void offerAndDownload_data()
    {
        QTest::addColumn<QByteArray>("extra"); // more keys of the reply
        QTest::addColumn<QString>("click");
        QTest::addColumn<QString>("body");
        QTest::addColumn<bool>("downloads");

        const QString message = u"A new version 1.2 is available. Would you like to download it?"_s;
        const QByteArray url = json(",'downloadUrl':'%1/files/Kestrix.dmg'");
        QTest::newRow("Download") << url + json(",'releaseNotes':'Bug fixes'") << "Download"
                                  << message + "\n\nBug fixes"_L1 << true;
        QTest::newRow("Later") << url << "Later" << message << false;
        QTest::newRow("empty notes") << url + json(",'releaseNotes':''") << "Later" << message + "\n\n"_L1 << false;
        QTest::newRow("Download, no address") << QByteArray() << "Download" << message << false;
        QTest::newRow("Download, not http")
            << json(",'downloadUrl':'ftp://127.0.0.1/Kestrix.dmg'") << "Download" << message << false;
    }

    void offerAndDownload()
    {
        QFETCH(QByteArray, extra);
        QFETCH(QString, click);
        QFETCH(QString, body);
        QFETCH(bool, downloads);
        const QString destination = m_downloads.filePath(u"Kestrix.dmg"_s);
        QFile old(destination);
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("an older download") > 0);
        old.close();
        m_server.setResponse("/files/Kestrix.dmg", { 200, "the new image", "application/octet-stream" });

        m_click = click;
        QByteArray reply = "{\"updateAvailable\":true,\"latestVersion\":\"1.2\"" + extra + '}';
        QVERIFY(runCheck(&UpdateChecker::checkForUpdate, reply.replace("%1", m_server.baseUrl().toEncoded())));
        QCOMPARE(m_alerts.size(), 1);
        QCOMPARE(m_alerts.first().text, u"Update Available"_s);
        QCOMPARE(m_alerts.first().body, body);
        QCOMPARE(m_alerts.first().buttons, (QStringList { u"Download"_s, u"Later"_s }));
        QCOMPARE(m_alerts.first().defaultButton, u"Download"_s);

        if (!downloads) {
            QVERIFY(!downloadStarted());
            return;
        }
        QTRY_COMPARE(m_opened, QList<QUrl> { QUrl::fromLocalFile(destination) });
        QVERIFY(old.open(QIODevice::ReadOnly));
        QCOMPARE(old.readAll(), QByteArray("the new image"));
    }

    void noUpdateSaysOkInEveryLanguage()
    {
        SettingsStore::shared().setValue(SettingsKeys::language, u"ko"_s);
        QVERIFY(runCheck(&UpdateChecker::checkForUpdate, json("{'updateAvailable':false,'latestVersion':'1.0.1'}")));
        QCOMPARE(m_alerts.size(), 1);
        QVERIFY(m_alerts.first().text != "No Updates"_L1);
        QCOMPARE(m_alerts.first().text, L10n::noUpdateTitle());
        QCOMPARE(m_alerts.first().body, L10n::noUpdateMessage());
        QCOMPARE(m_alerts.first().buttons, QStringList { u"OK"_s });
    }

    void serverThatNeverAnswersBlocksNothing()
    {
        m_server.setResponse("/checkUpdate/", { 200, {}, "application/json", HttpResponse::Hang });
        QSignalSpy received(&m_server, &LocalHttpServer::requestReceived);
        const int before = m_outcomes;
        UpdateChecker::checkForUpdate();
        QVERIFY(received.wait());

        // While the request hangs, the event loop goes on: a timer keeps firing, nothing is shown.
        int ticks = 0;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&ticks] { ++ticks; });
        timer.start(10);
        QTRY_VERIFY(ticks >= 5);
        QCOMPARE(m_outcomes, before);

        // The connection dies (Qt sends a GET again once; that one is dropped too): no answer, no alert.
        m_server.setResponse("/checkUpdate/", { 200, {}, {}, HttpResponse::Close });
        m_server.closeUnanswered();
        QTRY_COMPARE(m_outcomes, before + 1);
        QVERIFY(m_alerts.isEmpty());
    }
};

QTEST_MAIN(UpdateCheckerTest)
#include "UpdateCheckerTest.moc"
