// A build with the placeholder measurement id, as a distribution makes one without analytics:
// sending an event makes no request at all and leaves no client id behind.

#include "net/Analytics.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "net/LocalHttpServer.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QTest>

using namespace kestrix;
using namespace Qt::StringLiterals;

class AnalyticsDisabledTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void placeholderSendsNothingAndStoresNothing()
    {
        // Should the switch fail, the event still goes nowhere but here.
        test::LocalHttpServer server("KESTRIX_ANALYTICS_BASE_URL");
        SettingsStore::shared().clear();

        QVERIFY(!Analytics::isEnabled());
        Analytics::send(u"app_launch"_s, { { "app_version"_L1, u"1.0.1"_s }, { "language"_L1, u"en"_s } });
        // A request would have been handed to the network manager before send() returned; there is
        // not even a manager.
        QVERIFY(QCoreApplication::instance()->findChildren<QNetworkAccessManager *>().isEmpty());
        QVERIFY(!SettingsStore::shared().contains(SettingsKeys::gaClientId));
    }
};

QTEST_GUILESS_MAIN(AnalyticsDisabledTest)
#include "AnalyticsDisabledTest.moc"
