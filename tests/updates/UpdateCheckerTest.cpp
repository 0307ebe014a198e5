// The update check as the user meets it, against a real HTTP server on 127.0.0.1: which alert
// each reply brings in each mode, what the alerts say, what Download does, and a server that never
// answers. Alerts are answered by a timer that finds the modal box, as a user would click it.

#include "updates/UpdateChecker.h"

#include "core/Log.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "l10n/L10n.h"
#include "net/LocalHttpServer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDesktopServices>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

class UpdateCheckerTest : public QObject
{
    Q_OBJECT

    LocalHttpServer m_server { "KESTRIX_UPDATE_BASE_URL" };
    QTemporaryDir m_downloads;
    QTimer m_user;
    QString m_click; // the button the user clicks in the next alert; else the escape button
    QStringList m_alerts; // each as "title|body|buttons", the default one marked with "*"
    QList<Qt::LayoutDirection> m_directions; // of each alert
    QList<QUrl> m_opened;
    int m_outcomes = 0;

    // Runs one check and returns once it has concluded, its alert (if any) answered.
    bool runCheck(void (*check)(), const QByteArray &reply, int status = 200)
    {
        m_server.setResponse("/checkUpdate/", { status, reply });
        const int before = m_outcomes;
        m_alerts.clear();
        m_directions.clear();
        check();
        return QTest::qWaitFor([&] { return m_outcomes > before; });
    }

public Q_SLOTS:
    // The desktop's handler for file URLs while the test runs: nothing is really opened.
    void open(const QUrl &url) { m_opened << url; }

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("KESTRIX_DEBUG", "1"); // a check's conclusion is a debug line: the one sign of a silent one
        Log::setObserver([this](std::string_view line) {
            if (line.starts_with("[Kestrix] update check: "))
                ++m_outcomes;
        });
        setDownloadsFolder(m_downloads.path());
        QDesktopServices::setUrlHandler(u"file"_s, this, "open");

        connect(&m_user, &QTimer::timeout, this, [this] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (box == nullptr)
                return;
            QString alert = box->text() + u'|' + box->informativeText() + u'|';
            QAbstractButton *chosen = box->escapeButton() ? box->escapeButton() : box->buttons().constFirst();
            for (QAbstractButton *button : box->buttons()) {
                alert += (button == box->defaultButton() ? "*"_L1 : ""_L1) + button->text() + u' ';
                chosen = button->text() == m_click ? button : chosen;
            }
            m_alerts << alert.trimmed();
            m_directions << box->layoutDirection();
            chosen->click();
        });
        m_user.start(10);
    }

    void init()
    {
        SettingsStore::shared().clear();
        m_click.clear();
        m_alerts.clear();
        m_opened.clear();
        m_server.requests.clear();
        QFile::remove(m_downloads.filePath(u"Kestrix.dmg"_s));
    }

    void alertForEachReply()
    {
        const auto offer = [](const QString &version, const QString &notes = {}) {
            return u"Update Available|A new version %1 is available. Would you like to download it?%2|*Download Later"_s
                .arg(version, notes);
        };
        const QString none; // no click, or no alert
        const QByteArray update = json("{'updateAvailable':true,'latestVersion':'1.2'}");
        const QByteArray withUrl = json("{'updateAvailable':true,'latestVersion':'1.2',"
                                        "'downloadUrl':'%1/files/Kestrix.dmg'");
        const QString tenThousand = QString(9'999, u'n') + u"\U0001F600"_s; // the cut falls inside the pair
        // "%1" in a reply stands for the server's address; the alert is that of a manual check (a
        // silent one shows only an offer).
        const struct
        {
            int status;
            QByteArray sent;
            QString click, alert;
            bool downloads;
            const char *name;
        } rows[] = { { 200, withUrl + json(",'releaseNotes':'Bug fixes'}"), u"Download"_s,
                         offer(u"1.2"_s, u"\n\nBug fixes"_s), true, "Download" },
            { 200, withUrl + json(",'releaseNotes':''}"), u"Later"_s, offer(u"1.2"_s, u"\n\n"_s), false,
                "Later, empty notes" },
            { 200, json("{'updateAvailable':true,'latestVersion':'1.2','downloadUrl':'ftp://127.0.0.1/Kestrix.dmg'}"),
                u"Download"_s, offer(u"1.2"_s), false, "Download, not http" },
            { 200, json("{'updateAvailable':true,'latestVersion':'1.2','downloadUrl':null,'releaseNotes':null}"),
                u"Download"_s, offer(u"1.2"_s), false, "nulls: no address, no notes" },
            { 200,
                json("{'updateAvailable':true,'latestVersion':'2.0 β','releaseNotes':'  수정\\n\\u200Cfix  ',"
                     "'size':123,'mirrors':[{'a':1}],'UpdateAvailable':'x'}"),
                none, offer(u"2.0 β"_s, u"\n\n  수정\n\u200Cfix  "_s), false, "other keys ignored, text kept as sent" },
            { 200,
                json("{'updateAvailable':true,'latestVersion':'1.2','releaseNotes':'") + QByteArray(10'000, 'n')
                    + json("'}"),
                none, offer(u"1.2"_s, "\n\n"_L1 + QString(10'000, u'n')), false, "notes of exactly 10,000 characters" },
            { 200,
                json("{'updateAvailable':true,'latestVersion':'1.2','releaseNotes':'") + tenThousand.toUtf8()
                    + json("'}"),
                none, offer(u"1.2"_s, "\n\n"_L1 + QString(9'999, u'n') + QChar(0x2026)), false,
                "notes cut after 10,000 characters" },
            { 200, json("{'updateAvailable':true,'latestVersion':'1.0.1'}"), none, offer(u"1.0.1"_s), false,
                "same version offered" },
            { 500, update, none, offer(u"1.2"_s), false, "HTTP 500, valid body" },
            { 200, json("{'updateAvailable':false,'latestVersion':'1.0.1'}"), none,
                u"No Updates|You are using the latest version.|*OK"_s, false, "no update" },
            { 200, json("{'updateAvailable':true}"), none, none, false, "latestVersion missing" },
            { 502, QByteArray("<html>Bad Gateway</html>"), none, none, false, "not JSON" } };
        for (const auto &[status, sent, click, alert, downloads, name] : rows) {
            const Row row { QString::fromUtf8(name) };
            init();
            QByteArray reply = sent;
            reply.replace("%1", m_server.baseUrl().toEncoded());
            m_server.setResponse("/files/Kestrix.dmg", { 200, "the new image" });
            const QString destination = m_downloads.filePath(u"Kestrix.dmg"_s);

            m_click = click;
            QVERIFY(runCheck(&UpdateChecker::checkForUpdate, reply, status));
            QCOMPARE(m_alerts, alert.isEmpty() ? QStringList() : QStringList { alert });
            if (downloads) {
                // Opened once saved, never before.
                QTRY_COMPARE(m_opened, QList<QUrl> { QUrl::fromLocalFile(destination) });
                QCOMPARE(readFile(destination), QByteArray("the new image"));
            }

            m_click.clear(); // Later
            QVERIFY(runCheck(&UpdateChecker::checkSilently, reply, status));
            QCOMPARE(m_alerts, alert.startsWith("Update"_L1) ? QStringList { alert } : QStringList());
            // One GET of the update query per check, and the installer only when asked for; a download
            // started by mistake has reached the server before the silent check's request.
            QCOMPARE(m_server.requests.size(), downloads ? 3 : 2);
            QCOMPARE(m_server.requests.first().line, QByteArray("GET /checkUpdate/?v=1.0.1 HTTP/1.1"));
            QCOMPARE(m_opened.size(), downloads ? 1 : 0);
        }
    }

    // In the interface language, mirrored for one written from the right; "OK" in every language.
    void alertsFollowTheLanguage()
    {
        for (const char *code : { "ko", "ar", "he", "fa", "ur" }) {
            const QString language = QString::fromLatin1(code);
            const Row row { language };
            const Qt::LayoutDirection direction = language == "ko"_L1 ? Qt::LeftToRight : Qt::RightToLeft;
            SettingsStore::shared().setValue(SettingsKeys::language, language);
            QVERIFY(
                runCheck(&UpdateChecker::checkForUpdate, json("{'updateAvailable':false,'latestVersion':'1.0.1'}")));
            QCOMPARE(m_alerts, QStringList { L10n::noUpdateTitle() + u'|' + L10n::noUpdateMessage() + "|*OK"_L1 });
            QVERIFY(!m_alerts.first().startsWith("No Updates"_L1));
            QCOMPARE(m_directions, QList<Qt::LayoutDirection> { direction });
            QVERIFY(runCheck(&UpdateChecker::checkSilently, json("{'updateAvailable':true,'latestVersion':'1.2'}")));
            QVERIFY(m_alerts.first().startsWith(L10n::updateAvailable()));
            QCOMPARE(m_directions, QList<Qt::LayoutDirection> { direction });
        }
    }

    void serverThatNeverAnswersBlocksNothing()
    {
        m_server.setResponse("/checkUpdate/", { 200, {}, HttpResponse::Hang });
        QSignalSpy received(&m_server, &LocalHttpServer::requestReceived);
        const int before = m_outcomes;
        UpdateChecker::checkForUpdate();
        // Back before the server (on this same thread) has even seen the request; the event loop
        // goes on while it hangs, and nothing is shown.
        QVERIFY(received.isEmpty());
        QVERIFY(received.wait());
        QCOMPARE(m_outcomes, before);

        // The connection dies (Qt sends a GET again once; that one is dropped too): no answer, no alert.
        m_server.setResponse("/checkUpdate/", { 200, {}, HttpResponse::Close });
        m_server.closeUnanswered();
        QTRY_COMPARE(m_outcomes, before + 1);
        QVERIFY(m_alerts.isEmpty());
    }
};

QTEST_MAIN(UpdateCheckerTest)
#include "UpdateCheckerTest.moc"
