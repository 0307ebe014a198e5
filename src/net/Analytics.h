#pragma once

#include <QJsonObject>
#include <QString>
#include <QUrl>

// Anonymous usage events, reported to a GA4 property through the Measurement Protocol: one POST
// per event, fire-and-forget. Nothing is queued, retried or stored except the anonymous client id
// under the settings key "ga_client_id". A build whose measurement id is the placeholder
// "G-XXXXXXXXXX" (CMake option KESTRIX_GA_MEASUREMENT_ID) sends nothing and creates no client id.
namespace kestrix::Analytics {

// Fire-and-forget GA4 Measurement Protocol event; returns at once. The body is
// {"client_id": <id>, "events": [{"name": eventName, "params": params}]}, compact JSON; the
// parameters are passed on unchanged (every caller sends string values). Every failure is silent.
void send(const QString &eventName, const QJsonObject &params);

// False when the build carries the placeholder measurement id.
bool isEnabled();

// The collection address: the GA4 collection host, or KESTRIX_ANALYTICS_BASE_URL when set (read
// once per process), then "/mp/collect" with the measurement id and API secret as its query.
// Invalid when an override of the host was refused.
QUrl collectionUrl();

} // namespace kestrix::Analytics
