#include "App/Model/KVLaunchSequence.h"

#include "Platform/KVUserDefaults.h"

#include <QDateTime>
#include <QPointer>

KVLaunchSequence::KVLaunchSequence(KVUpdateEngine &engine, QObject *parent)
    : QObject(parent)
    , m_engine(engine)
{}

void KVLaunchSequence::checkInstaller()
{
    Q_EMIT checkStarted();
    m_step = CheckingInstaller;
    // The engine's handlers may outlive the sequence: the window can close while a check runs.
    QPointer<KVLaunchSequence> self(this);
    m_engine.checkInstallerUpdateWithcompletionHandler([self](const KVINISectionPtr &installer, const KVError &error) {
        if (!self)
            return;
        if (error) {
            // The step stays: a repetition checks the installer again.
            Q_EMIT self->checkFailed(error, QStringLiteral("installer check"));
            return;
        }
        self->m_step = InstallerChecked;
        if (installer)
            self->updateInstaller(installer);
        else
            self->checkDeliverables();
    });
}

void KVLaunchSequence::updateInstaller(const KVINISectionPtr &section)
{
    Q_EMIT installerUpdateStarted(section);
    m_engine.updateInstaller(section, progressOf(Run::Installer, UpdatingInstaller),
                             completionOf(Run::Installer, InstallerUpdated));
}

void KVLaunchSequence::checkDeliverables()
{
    QPointer<KVLaunchSequence> self(this);
    m_engine.checkUpdateWithcompletionHandler([self](const QList<KVINISectionPtr> &sections, const KVError &error) {
        if (!self)
            return;
        if (error) {
            Q_EMIT self->checkFailed(error, QStringLiteral("update check"));
        } else if (!sections.isEmpty()) {
            self->m_step = LicenseShown;
            Q_EMIT self->licenceRequired(sections);
        } else {
            Q_EMIT self->nothingDue();
        }
    });
}

void KVLaunchSequence::updateDeliverables()
{
    Q_EMIT checkStarted();
    QPointer<KVLaunchSequence> self(this);
    m_engine.checkUpdateWithcompletionHandler([self](const QList<KVINISectionPtr> &sections, const KVError &) {
        if (!self)
            return;
        self->m_step = SectionUpdateStarted;
        self->m_engine.updateWithSections(sections, self->progressOf(Run::Deliverables, SectionUpdateInProgress),
                                          self->completionOf(Run::Deliverables, Complete));
    });
}

void KVLaunchSequence::repeatCurrentStep()
{
    if (m_step <= InstallerUpdated)
        checkInstaller();
    else
        updateDeliverables();
}

KVProgressHandler KVLaunchSequence::progressOf(Run run, Step stepWhileRunning)
{
    QPointer<KVLaunchSequence> self(this);
    return [self, run, stepWhileRunning](float fraction, const std::optional<QVariantMap> &info) {
        if (!self)
            return;
        self->m_step = stepWhileRunning;
        Q_EMIT self->runProgressed(run, fraction, info);
    };
}

KVUpdateCompletionHandler KVLaunchSequence::completionOf(Run run, Step stepOnSuccess)
{
    QPointer<KVLaunchSequence> self(this);
    return [self, run, stepOnSuccess](const QVariantMap &, const KVError &error) {
        if (!self)
            return;
        // Every run that ends, failed or not, dates the last update; the companion application
        // receives the date at the hand-over.
        KVUserDefaults::standardUserDefaults().setObject(QStringLiteral("InstallerUpdateDate"),
                                                         QDateTime::currentDateTimeUtc());
        if (!error)
            self->m_step = stepOnSuccess;
        Q_EMIT self->runFinished(run, error);
    };
}
