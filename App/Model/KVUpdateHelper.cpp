#include "App/Model/KVUpdateHelper.h"

#include "App/Model/KVHTTPSession.h"
#include "App/Model/KVLeftovers.h"
#include "App/Model/KVManifestCache.h"
#include "App/Model/KVManifestTrust.h"
#include "App/Model/KVNetworkError.h"
#include "Core/Extensions/KVCancellation.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"
#include "Platform/KVStandardPaths.h"
#include "Platform/KVSystemInfo.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QPointer>
#include <QStringDecoder>
#include <QTimer>

#include <atomic>
#include <cstdlib>
#include <mutex>

namespace {
std::atomic<qint64> networkTimeoutMilliseconds{60000};
// How long quitting waits for the engine's work to wind down: within the 2 s a quit may take.
constexpr std::chrono::milliseconds kStopGrace(1500);

// The largest manifest read; a real one is a few kilobytes.
constexpr qint64 kManifestCeiling = 4 << 20;
constexpr qint64 kManifestReadBufferSize = 64 << 10;

// The text of a manifest; text that is not valid UTF-8 decodes to nothing and so parses to no section.
std::shared_ptr<KVINI> parseManifest(const QByteArray &data)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(data);
    return std::make_shared<KVINI>(decoder.hasError() ? QString() : text);
}

// The detached signature published beside the manifest, "<manifest>.minisig".
KVResult<QByteArray> fetchSignatureOf(const QUrl &manifestURL)
{
    QUrl url = manifestURL;
    url.setPath(url.path() + QStringLiteral(".minisig"));
    KVError error;
    QByteArray signature = KVUpdateHelper::downloadURL(url, &error);
    if (!error)
        return signature;
    // A server that answers, but not with the signature, serves an unsigned manifest.
    if (error.userInfo().contains(KVHTTPStatusKey))
        return KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorManifestUnverified,
                       {{KVLocalizedDescriptionKey,
                         QStringLiteral("it is not signed: %1 answered with HTTP status %2")
                             .arg(url.toString(), error.userInfo().value(KVHTTPStatusKey).toString())}});
    return error;
}

// A manifest that has passed the installer's trust, and the signature it passed with.
struct TrustedManifest
{
    std::shared_ptr<KVINI> document;
    QByteArray signature;
};

// The manifest parsed, once it has passed the installer's trust; without trusted keys (a
// developer build) it is used unchecked, which the log says once per run. A signature known
// already (kept with the manifest) is checked instead of the published one.
KVResult<TrustedManifest> trustedManifest(const QUrl &url, const QByteArray &data,
                                          const std::optional<QByteArray> &knownSignature)
{
    const KVManifestTrust trust = KVManifestTrust::current();
    if (!trust.isSignatureRequired()) {
        static std::once_flag warned;
        std::call_once(warned, [] {
            KVLogWarning("%@: no key is trusted to sign updates: the manifest is used without checking a signature",
                         KVUpdateHelper::kClassName);
        });
        return TrustedManifest{parseManifest(data), {}};
    }
    const KVResult<QByteArray> signature = knownSignature ? *knownSignature : fetchSignatureOf(url);
    if (!signature)
        return signature.error();
    if (const KVResult<void> verified = trust.verify(data, *signature); !verified)
        return verified.error();
    TrustedManifest manifest{parseManifest(data), *signature};
    if (manifest.document->sections().isEmpty())
        return manifest; // signed, but empty: reported as any empty manifest is
    if (const KVResult<void> accepted = trust.accept(*manifest.document); !accepted)
        return accepted.error();
    return manifest;
}

constexpr int kNotModified = 304;

// A URL made from text the way the platform makes one: nothing for empty or malformed text.
QUrl urlFromString(const QString &text)
{
    if (text.isEmpty())
        return {};
    const QUrl url(text, QUrl::StrictMode);
    return url.isValid() ? url : QUrl();
}
} // namespace

KVUpdateHelper &KVUpdateHelper::sharedInstance()
{
    static KVUpdateHelper instance(testServerUpdateURL());
    static std::once_flag swept;
    // First on the queue, so that no check or run of this process meets what a killed run left.
    std::call_once(swept, [] {
        instance.queue().async([] { KVLeftovers::removeLeftoversOfEarlierRuns(instance.deploymentFolders()); });
    });
    return instance;
}

QStringList KVUpdateHelper::deploymentFolders() const
{
    const QString data = KVStandardPaths::applicationSupportDirectory() + QStringLiteral("/Nestora");
    return {KVStandardPaths::applicationsDirectory(),
            QFileInfo(KVBundle::mainBundle().bundlePath()).absolutePath(),
            data,
            data + QStringLiteral("/Devices"),
            data + QStringLiteral("/SmartCards"),
            pluginDirectory()};
}

QUrl KVUpdateHelper::testServerUpdateURL()
{
    const QString path = KVStandardPaths::expandTilde(QStringLiteral("~/Downloads/TestServerForVexa.txt"));
    const QFileInfo info(path);
    if (!info.exists() || info.isDir())
        return {};
    QFile file(path);
    const QJsonDocument document =
        QJsonDocument::fromJson(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    if (document.isNull()) {
        KVLogError("%@ invalid test configs file at %@", kClassName, path);
        return {};
    }
    QUrl url = urlFromString(document.object().value(QStringLiteral("ApplicationUpdate")).toString());
    if (url.isEmpty())
        KVLogError("%@ invalid app update url in JSON file at %@", kClassName, path);
    return url;
}

KVUpdateHelper::KVUpdateHelper(const QUrl &updateURL)
    : m_updateURL(updateURL)
{
    if (m_updateURL.isEmpty()) {
        const QVariant value = KVBundle::mainBundle().objectForInfoDictionaryKey(QStringLiteral("AppUpdateURL"));
        m_updateURL = urlFromString(value.toString());
        if (m_updateURL.isEmpty())
            KVLogError("%@: invalid update url %@ in user defaults", kClassName, value);
    }
    m_queue = std::make_unique<KVSerialQueue>(kClassName);
    m_archive = KVStandardPaths::applicationSupportDirectory() + QStringLiteral("/Nestora/UpdateHistory.plist");
    m_history = KVPropertyList::readDictionary(m_archive).valueOr({});
}

KVUpdateHelper::~KVUpdateHelper()
{
    KVLogVerbose("%s", __func__);
    m_queue.reset(); // finishes the queued work while the members it uses still exist
}

void KVUpdateHelper::setUpdating(bool updating)
{
    if (m_updating != updating)
        m_updating = updating;
}

void KVUpdateHelper::stopWorkForExit(int exitStatus)
{
    KVCancellation::request();
    QEventLoop loop;
    const QPointer<QEventLoop> waiting(&loop);
    auto idle = std::make_shared<std::atomic_bool>(false);
    m_queue->async([waiting, idle] {
        *idle = true;
        KVDispatch::asyncMain([waiting] {
            if (waiting)
                waiting->quit();
        });
    });
    QTimer::singleShot(kStopGrace, &loop, &QEventLoop::quit);
    loop.exec();
    if (!*idle) {
        KVLogError("%@ work still under way %@ ms after quitting; ending at once", kClassName,
                   QString::number(kStopGrace.count()));
        std::_Exit(exitStatus);
    }
}

std::chrono::milliseconds KVUpdateHelper::networkTimeout()
{
    return std::chrono::milliseconds(networkTimeoutMilliseconds.load());
}

void KVUpdateHelper::setNetworkTimeout(std::chrono::milliseconds timeout)
{
    networkTimeoutMilliseconds = timeout.count();
}

QString KVUpdateHelper::OSVersion()
{
    const KVSystemInfo::Version version = KVSystemInfo::operatingSystemVersion();
    return QStringLiteral("%1.%2").arg(version.major).arg(version.minor);
}

bool KVUpdateHelper::downloadUpdateINI(bool force, KVError *error)
{
    KVError fetchError;
    if (m_updateURL.isEmpty()) {
        fetchError = KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorManifestUnavailable,
                             {{KVLocalizedFailureReasonErrorKey, QStringLiteral("update URL not found")}});
    } else if (m_INI && !m_INI->sections().isEmpty() && !force) {
        // Within one run the manifest is fetched once and then reused.
    } else {
        // Asked for only if it changed since the copy kept from the last check.
        const std::optional<KVManifestCache::Copy> kept = KVManifestCache::load(m_updateURL);
        KVHTTPValidators validators;
        QByteArray data =
            downloadURL(m_updateURL, &fetchError,
                        kept ? kept->validators.conditionalHeaders() : KVHTTPSession::RawHeaders(), &validators);
        std::optional<QByteArray> knownSignature;
        if (kept && fetchError.userInfo().value(KVHTTPStatusKey).toInt() == kNotModified) {
            KVLogInfo("%@: the manifest at %@ is unchanged; the copy kept from the last check is used", kClassName,
                      m_updateURL);
            data = kept->manifest;
            knownSignature = kept->signature;
            validators = kept->validators;
            fetchError = {};
        }
        if (!data.isNull() && !fetchError) {
            // A manifest that fails the installer's trust is never used; the earlier one stays.
            KVResult<TrustedManifest> manifest = trustedManifest(m_updateURL, data, knownSignature);
            if (manifest) {
                m_INI = std::move(manifest->document);
                if (m_INI->sections().isEmpty()) {
                    fetchError = KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorManifestUnavailable);
                } else {
                    pruneDownloads();
                    KVManifestCache::store(m_updateURL, {data, manifest->signature, validators});
                }
            } else {
                fetchError = manifest.error();
                KVLogError("%@: the manifest at %@ is not used: %@", kClassName, m_updateURL, fetchError);
            }
        }
    }
    if (error)
        *error = fetchError;
    return true;
}

// What is kept of downloads is kept for the releases the manifest offers now, and only for them.
void KVUpdateHelper::pruneDownloads() const
{
    QStringList named;
    for (const KVINISectionPtr &section : m_INI->sections())
        if (const QString path = downloadPathForSection(*section); !path.isEmpty())
            named << QFileInfo(path).fileName();
    KVLeftovers::pruneDownloads(downloadFolder(), named);
}

QByteArray KVUpdateHelper::downloadURL(const QUrl &url, KVError *error, const KVHTTPSession::RawHeaders &headers,
                                       KVHTTPValidators *validators)
{
    KVLogVerbose("%@ will download url %@", kClassName, url);

    // The calling thread blocks here; a private session and event loop serve this one request.
    KVHTTPSession session;
    QNetworkReply *reply = session.get(url, headers);
    // Read as it arrives and only up to the ceiling: a body without end must not fill the memory.
    reply->setReadBufferSize(kManifestReadBufferSize);
    QByteArray received("");
    const auto readBody = [&] {
        received += reply->read(kManifestCeiling + 1 - received.size());
        if (received.size() > kManifestCeiling && reply->isRunning())
            reply->abort();
    };
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::readyRead, &loop, readBody);
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    {
        // Queued to this thread, whose loop below serves it: the installer may quit meanwhile.
        const KVCancellation::Registration cancellation(
            [reply] { QMetaObject::invokeMethod(reply, &QNetworkReply::abort, Qt::QueuedConnection); });
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }
    readBody();

    const bool tooLong = received.size() > kManifestCeiling;
    const KVError transportError = tooLong ? KVError() : KVTransportErrorOfReply(*reply);
    KVLogVerbose("%@ did download url %@, error %@", kClassName, url, transportError);

    QByteArray body;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    KVError outcome = transportError;
    if (tooLong) {
        outcome = KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorManifestUnavailable,
                          {{KVLocalizedFailureReasonErrorKey,
                            QStringLiteral("the manifest is larger than %1 MiB").arg(kManifestCeiling >> 20)}});
    } else if (!transportError && status == 200) {
        body = received; // an empty 200 answer is data, not a missing answer
    } else if (!transportError) {
        outcome = KVError(KVURLErrorDomain, KVURLErrorConnectionFailed, {{KVHTTPStatusKey, status}});
    }
    if (error)
        *error = outcome;
    if (validators)
        *validators = KVHTTPValidators::of(*reply);
    reply->deleteLater();
    return body;
}
