#include "net/Network.h"

#include "core/Log.h"
#include "net/AppInfo.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QThread>

#include <string>

using namespace Qt::StringLiterals;

namespace kestrix::Network {

QNetworkAccessManager &manager()
{
    static QPointer<QNetworkAccessManager> instance;
    QCoreApplication *application = QCoreApplication::instance();
    if (application == nullptr)
        Log::fatal("[Kestrix] network used before the application object exists");
    if (QThread::currentThread() != application->thread())
        Log::fatal("[Kestrix] network used outside the main thread");
    if (instance.isNull()) {
        instance = new QNetworkAccessManager(application);
        // Every reply is deleted once its finished() handlers have run; nobody keeps one.
        instance->setAutoDeleteReplies(true);
    }
    return *instance;
}

bool serverAnswered(const QNetworkReply &reply)
{
    if (!reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid())
        return false;
    const QNetworkReply::NetworkError error = reply.error();
    // Qt turns HTTP error statuses into content and server errors (2xx and 4xx codes of the enum,
    // and ProtocolInvalidOperationError for a 400); those replies still carry the whole body.
    // Connection, proxy and framing failures are below HTTP: the body is missing or cut short.
    const int code = static_cast<int>(error);
    const bool belowHttp = (code > 0 && code < 200) || error == QNetworkReply::ProtocolFailure
        || error == QNetworkReply::ProtocolUnknownError;
    return !belowHttp;
}

QUrl baseUrl(const char *variable, QLatin1StringView builtIn)
{
    const QByteArray override = qgetenv(variable);
    if (override.isEmpty())
        return QUrl(builtIn);
    QUrl url(QString::fromUtf8(override), QUrl::StrictMode);
    const QString scheme = url.scheme();
    if (!url.isValid() || url.host().isEmpty() || (scheme != "http"_L1 && scheme != "https"_L1) || url.hasQuery()
        || url.hasFragment()) {
        const std::string line = "[Kestrix] " + std::string(variable) + " ignored, the server is not contacted: \""
            + override.toStdString() + "\" is not an absolute http or https address without query";
        Log::write(line);
        return {};
    }
    return url;
}

QNetworkRequest request(const QUrl &url, bool identifyKestrix)
{
    QNetworkRequest request(url);
    if (identifyKestrix)
        request.setRawHeader("User-Agent", "Kestrix/" + QByteArray(AppInfo::version.data(), AppInfo::version.size()));
    request.setRawHeader("Accept-Language", "*");
    request.setRawHeader("Accept-Encoding", "identity");
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    return request;
}

QUrl joinUrl(const QUrl &base, QLatin1StringView pathAndQuery)
{
    if (!base.isValid())
        return {};
    QString text = base.toString(QUrl::FullyEncoded);
    while (text.endsWith(u'/'))
        text.chop(1);
    return QUrl(text + pathAndQuery, QUrl::StrictMode);
}

} // namespace kestrix::Network
