// Downloads a large file from a local nginx through the engine's download primitive and prints
// the time taken and this process's peak memory, to show that a download streams to disk in
// constant memory whatever its size.
//
//   bench_download [size in MiB, default 1024] [memory budget in MiB, default 64]
//
// Exits with status 1 when the download fails or the peak memory reaches the budget. Everything
// (the served file, nginx's state, the downloaded copy) lives in a temporary sandbox.

#include "App/Model/KVUpdateHelper.h"
#include "KVNginxServer.h"
#include "KVTestSandbox.h"

#include <QElapsedTimer>

#include <cstdio>

namespace {

// A value in KiB from /proc/self/status, such as "VmHWM" (peak resident memory) or "VmRSS".
qint64 statusKiB(const QByteArray &field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith(field + ':'))
            return line.mid(field.size() + 1).trimmed().split(' ').value(0).toLongLong();
    return -1;
}

} // namespace

int main(int argc, char *argv[])
{
    KVTestSandbox sandbox;
    QCoreApplication application(argc, argv);
    const qint64 sizeMiB = argc > 1 ? QByteArray(argv[1]).toLongLong() : 1024;
    const qint64 budgetMiB = argc > 2 ? QByteArray(argv[2]).toLongLong() : 64;

    // A sparse file: nginx sends it with sendfile, so serving it costs neither disk nor memory.
    const QString documentRoot = sandbox.root() + QStringLiteral("/www");
    QDir().mkpath(documentRoot);
    QFile served(documentRoot + QStringLiteral("/big.bin"));
    if (!served.open(QIODevice::WriteOnly) || !served.resize(sizeMiB << 20)) {
        std::fprintf(stderr, "cannot create the served file\n");
        return 1;
    }
    served.close();
    KVNginxServer nginx(documentRoot);
    QString problem;
    if (!nginx.start(&problem)) {
        std::fprintf(stderr, "nginx did not start: %s\n", qPrintable(problem));
        return 1;
    }

    const qint64 residentBeforeKiB = statusKiB("VmRSS");
    const QString destination = sandbox.temporaryDirectory() + QStringLiteral("/big.bin");
    KVError outcome;
    qint64 reports = 0;
    QElapsedTimer clock;
    clock.start();
    KVUpdateHelper::downloadURL(
        nginx.url(QStringLiteral("/big.bin")).toString(), destination, [&](const KVTransferProgress &) { ++reports; },
        [&](const QString &, const KVError &error) {
            outcome = error;
            application.quit();
        });
    application.exec();
    const double seconds = clock.elapsed() / 1000.0;
    const qint64 peakKiB = statusKiB("VmHWM");

    const qint64 received = QFileInfo(destination).size();
    std::printf("downloaded %lld MiB in %.1f s (%.0f MiB/s), %lld progress reports\n", received >> 20, seconds,
                double(received >> 20) / seconds, reports);
    std::printf("resident memory before the download %lld MiB, peak %lld MiB (budget %lld MiB)\n",
                residentBeforeKiB >> 10, peakKiB >> 10, budgetMiB);
    if (outcome || received != sizeMiB << 20) {
        std::fprintf(stderr, "download failed: %s\n", qPrintable(outcome.description()));
        return 1;
    }
    return peakKiB < budgetMiB << 10 ? 0 : 1;
}
