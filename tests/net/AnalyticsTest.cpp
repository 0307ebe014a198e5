// Usage events as the collector sees them on the wire: a POST to "/mp/collect" with the
// measurement id and API secret in the query, a compact JSON body with one event and the caller's
// string parameters, under one anonymous client id created by the first event and kept.

#include "net/Analytics.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "net/LocalHttpServer.h"
#include "net/Network.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

class AnalyticsTest : public QObject
{
    Q_OBJECT

    LocalHttpServer m_server;

    // Sends one event and returns the request the server got for it.
    HttpRequest sendAndReceive(const QString &name, const QJsonObject &params)
    {
        const qsizetype before = m_server.requests.size();
        Analytics::send(name, params);
        if (!QTest::qWaitFor([&] { return m_server.requests.size() > before; }))
            qFatal("the collector never got the event %s", qPrintable(name));
        return m_server.requests.last();
    }

    static QJsonObject bodyOf(const HttpRequest &request) { return QJsonDocument::fromJson(request.body).object(); }

private Q_SLOTS:
    void initTestCase()
    {
        if (!Analytics::isEnabled())
            QSKIP("this build carries the placeholder measurement id: analytics is off");
        qputenv("KESTRIX_ANALYTICS_BASE_URL", m_server.baseUrl().toEncoded());
        m_server.setResponse("/mp/collect", HttpResponse { 204, {}, {}, HttpResponse::Answer });
    }

    void init() { SettingsStore::shared().clear(); }
    // Fire-and-forget still finishes: no reply may outlive its test.
    void cleanup() { QTRY_VERIFY(Network::manager().findChildren<QNetworkReply *>().isEmpty()); }

    void eventOnTheWire_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QJsonObject>("params");

        QTest::newRow("app_launch") << u"app_launch"_s
                                    << QJsonObject { { "app_version"_L1, u"1.0.1"_s }, { "language"_L1, u"xx"_s } };
        QTest::newRow("setting_changed") << u"setting_changed"_s
                                         << QJsonObject { { "setting_name"_L1, u"scroll_speed"_s },
                                                { "value"_L1, u"2.0"_s } };
    }

    void eventOnTheWire()
    {
        QFETCH(QString, name);
        QFETCH(QJsonObject, params);
        const HttpRequest request = sendAndReceive(name, params);

        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.target,
            QByteArray("/mp/collect?measurement_id=" KESTRIX_EXPECTED_MEASUREMENT_ID
                       "&api_secret=" KESTRIX_EXPECTED_API_SECRET));
        QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));

        // Compact: not one blank or line break outside the values (none of which holds one).
        QVERIFY2(!request.body.contains(' ') && !request.body.contains('\n'), request.body.constData());
        QJsonParseError error {};
        const QJsonDocument document = QJsonDocument::fromJson(request.body, &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
        const QJsonObject body = document.object();
        QCOMPARE(body.keys(), (QStringList { u"client_id"_s, u"events"_s }));
        QCOMPARE(body.value("events"_L1).toArray().size(), 1);
        const QJsonObject event = body.value("events"_L1).toArray().first().toObject();
        QCOMPARE(event.keys(), (QStringList { u"name"_s, u"params"_s }));
        QCOMPARE(event.value("name"_L1).toString(), name);
        QCOMPARE(event.value("params"_L1).toObject(), params);
    }

    void clientIdCreatedOnceAndKept()
    {
        QVERIFY(!SettingsStore::shared().contains(SettingsKeys::gaClientId));
        const QString first = bodyOf(sendAndReceive(u"app_launch"_s, {})).value("client_id"_L1).toString();

        static const QRegularExpression uuid(u"^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"_s);
        QVERIFY2(uuid.match(first).hasMatch(), qPrintable(first));
        QCOMPARE(SettingsStore::shared().stringValue(SettingsKeys::gaClientId), first);

        const QString second = bodyOf(sendAndReceive(u"language_changed"_s, { { "language"_L1, u"de"_s } }))
                                   .value("client_id"_L1)
                                   .toString();
        QCOMPARE(second, first);
    }

    void storedClientIdUsedAsItStands_data()
    {
        QTest::addColumn<QJsonValue>("stored");
        QTest::addColumn<bool>("kept");

        QTest::newRow("a UUID") << QJsonValue(u"0A1B2C3D-0000-4000-8000-00000000ABCD"_s) << true;
        QTest::newRow("not a UUID") << QJsonValue(u"my-own-id"_s) << true;
        QTest::newRow("empty") << QJsonValue(u""_s) << true;
        // Not a string at all: unreadable as an id, so a new one takes its place.
        QTest::newRow("a number") << QJsonValue(42) << false;
    }

    void storedClientIdUsedAsItStands()
    {
        QFETCH(QJsonValue, stored);
        QFETCH(bool, kept);
        SettingsStore::shared().setValue(SettingsKeys::gaClientId, stored);
        const QString sent = bodyOf(sendAndReceive(u"app_launch"_s, {})).value("client_id"_L1).toString();
        if (kept) {
            QCOMPARE(sent, stored.toString());
        } else {
            QCOMPARE(sent.size(), 36);
            QCOMPARE(SettingsStore::shared().value(SettingsKeys::gaClientId), QJsonValue(sent));
        }
    }
};

QTEST_GUILESS_MAIN(AnalyticsTest)
#include "AnalyticsTest.moc"
