#include "net/Analytics.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "net/Network.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUuid>

#ifndef KESTRIX_GA_MEASUREMENT_ID
#error "KESTRIX_GA_MEASUREMENT_ID must be defined by the build (CMake option of the same name)"
#endif
#ifndef KESTRIX_GA_API_SECRET
#error "KESTRIX_GA_API_SECRET must be defined by the build (CMake option of the same name)"
#endif

using namespace Qt::StringLiterals;

namespace kestrix::Analytics {
namespace {

// The value of the measurement id that means "analytics not configured".
constexpr QLatin1StringView placeholderMeasurementId = "G-XXXXXXXXXX"_L1;
constexpr QLatin1StringView measurementId = QLatin1StringView(KESTRIX_GA_MEASUREMENT_ID);
constexpr QLatin1StringView collectionHost = "https://www.google-analytics.com"_L1;
// Path and query in one literal, put together by the compiler, not at run time.
constexpr QLatin1StringView collectionPathAndQuery
    = QLatin1StringView("/mp/collect?measurement_id=" KESTRIX_GA_MEASUREMENT_ID "&api_secret=" KESTRIX_GA_API_SECRET);
// Milliseconds without any traffic after which Qt gives the request up.
constexpr int requestTimeoutMs = 60'000;

// The anonymous id of this user's installation, created by the first event actually sent. A value
// already stored is used as it stands, even one that is not a UUID: it is the collector's to judge.
QString clientId()
{
    SettingsStore &store = SettingsStore::shared();
    if (const std::optional<QString> stored = store.stringValue(SettingsKeys::gaClientId))
        return *stored;
    QString created = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    store.setValue(SettingsKeys::gaClientId, created);
    return created;
}

} // namespace

bool isEnabled() { return measurementId != placeholderMeasurementId; }

QUrl collectionUrl()
{
    static const QUrl base = Network::baseUrl("KESTRIX_ANALYTICS_BASE_URL", collectionHost);
    return Network::joinUrl(base, collectionPathAndQuery);
}

void send(const QString &eventName, const QJsonObject &params)
{
    if (!isEnabled())
        return;
    const QUrl url = collectionUrl();
    if (!url.isValid())
        return;

    const QJsonObject event { { "name"_L1, eventName }, { "params"_L1, params } };
    const QJsonObject body { { "client_id"_L1, clientId() }, { "events"_L1, QJsonArray { event } } };

    // No user agent of Kestrix's own: the event says which version sent it.
    QNetworkRequest request = Network::request(url, false);
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    request.setTransferTimeout(requestTimeoutMs);
    // The reply is never read: the manager deletes it when it finishes, whatever the outcome.
    Network::manager().post(request, QJsonDocument(body).toJson(QJsonDocument::Compact));
}

} // namespace kestrix::Analytics
