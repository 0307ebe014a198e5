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
#include <QTest>

#include <algorithm>
#include <utility>

using namespace kestrix;
using namespace Qt::StringLiterals;

class AnalyticsTest : public QObject
{
    Q_OBJECT

    test::LocalHttpServer m_server { "KESTRIX_ANALYTICS_BASE_URL" };

    // Sends one event and returns the request the collector got for it.
    test::HttpRequest sendAndReceive(const QString &name, const QJsonObject &params)
    {
        const qsizetype before = m_server.requests.size();
        Analytics::send(name, params);
        if (!QTest::qWaitFor([&] { return m_server.requests.size() > before; }))
            qFatal("the collector never got the event %s", qPrintable(name));
        return m_server.requests.last();
    }

    static QString clientIdOf(const test::HttpRequest &request)
    {
        return QJsonDocument::fromJson(request.body).object().value("client_id"_L1).toString();
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!Analytics::isEnabled())
            QSKIP("this build carries the placeholder measurement id: analytics is off");
        m_server.setResponse("/mp/collect", { 204, {} });
    }

    void init() { SettingsStore::shared().clear(); }
    // Fire-and-forget still finishes: no reply may outlive its test.
    void cleanup() { QTRY_VERIFY(Network::manager().findChildren<QNetworkReply *>().isEmpty()); }

    void eventsOnTheWire()
    {
        QVERIFY(!SettingsStore::shared().contains(SettingsKeys::gaClientId));
        const QList<std::pair<QString, QJsonObject>> events {
            { u"app_launch"_s, { { "app_version"_L1, u"1.0.1"_s }, { "language"_L1, u"xx"_s } } },
            { u"setting_changed"_s, { { "setting_name"_L1, u"scroll_speed"_s }, { "value"_L1, u"2.0"_s } } },
        };
        QString firstId;
        for (const auto &[name, params] : events) {
            const test::HttpRequest request = sendAndReceive(name, params);
            QCOMPARE(request.line,
                QByteArray("POST /mp/collect?measurement_id=" KESTRIX_EXPECTED_MEASUREMENT_ID
                           "&api_secret=" KESTRIX_EXPECTED_API_SECRET " HTTP/1.1"));
            QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
            // Only what Qt always sends besides, and nothing of the user's: no locale, no cookie.
            QList<QByteArray> names = request.headers.keys();
            std::sort(names.begin(), names.end());
            QCOMPARE(names,
                (QList<QByteArray> { "accept-encoding", "accept-language", "connection", "content-length",
                    "content-type", "host", "user-agent" }));
            QCOMPARE(request.headers.value("accept-language"), QByteArray("*"));
            // Compact: not one blank or line break outside the values (none of which holds one).
            QVERIFY2(!request.body.contains(' ') && !request.body.contains('\n'), request.body.constData());
            const QString id = clientIdOf(request);
            const QJsonObject event { { "name"_L1, name }, { "params"_L1, params } };
            QCOMPARE(QJsonDocument::fromJson(request.body).object(),
                (QJsonObject { { "client_id"_L1, id }, { "events"_L1, QJsonArray { event } } }));
            // Created by the first event, then kept.
            firstId = firstId.isEmpty() ? id : firstId;
            QCOMPARE(id, firstId);
        }
        static const QRegularExpression uuid(u"^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"_s);
        QVERIFY2(uuid.match(firstId).hasMatch(), qPrintable(firstId));
        QCOMPARE(SettingsStore::shared().stringValue(SettingsKeys::gaClientId), firstId);
    }

    void storedClientIdUsedAsItStands()
    {
        for (const QString &stored : { u"my-own-id"_s, u""_s }) {
            SettingsStore::shared().setValue(SettingsKeys::gaClientId, stored);
            QCOMPARE(clientIdOf(sendAndReceive(u"app_launch"_s, {})), stored);
        }
        // Not a string at all: unreadable as an id, so a new one takes its place.
        SettingsStore::shared().setValue(SettingsKeys::gaClientId, 42);
        const QString sent = clientIdOf(sendAndReceive(u"app_launch"_s, {}));
        QCOMPARE(sent.size(), 36);
        QCOMPARE(SettingsStore::shared().value(SettingsKeys::gaClientId), QJsonValue(sent));
    }
};

QTEST_GUILESS_MAIN(AnalyticsTest)
#include "AnalyticsTest.moc"
