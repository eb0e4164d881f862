// The sample companion application. Each start appends one JSON line {"pid": …, "arguments": […]}
// to the file named by NESTORA_COMPANION_RECORD (default <XDG data home>/Nestora/
// companion-launches.jsonl); then it idles until it is terminated or, with --quit-after-ms N,
// for N milliseconds.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QTextStream>
#include <QTimer>

namespace {
QString recordPath()
{
    const QString configured = qEnvironmentVariable("NESTORA_COMPANION_RECORD");
    if (!configured.isEmpty())
        return configured;
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/Nestora/companion-launches.jsonl");
}

bool recordStart(const QString &path, const QStringList &arguments)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile record(path);
    if (!record.open(QIODevice::WriteOnly | QIODevice::Append))
        return false;
    const QJsonObject line{{QStringLiteral("pid"), QCoreApplication::applicationPid()},
                           {QStringLiteral("arguments"), QJsonArray::fromStringList(arguments)}};
    // One write per line, so that instances starting together never interleave their lines.
    return record.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n') > 0;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments().mid(1);
    const QString path = recordPath();
    if (!recordStart(path, arguments)) {
        QTextStream(stderr) << "Nestora: cannot record this start in " << path << '\n';
        return 1;
    }
    const qsizetype quitOption = arguments.indexOf(QStringLiteral("--quit-after-ms"));
    if (quitOption >= 0)
        QTimer::singleShot(arguments.value(quitOption + 1).toInt(), &application, &QCoreApplication::quit);
    return application.exec();
}
