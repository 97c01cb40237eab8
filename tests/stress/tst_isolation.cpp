// Isolation between users, proved with a second real user (runs only as root): that user plants
// folders, files and links where this user's runtime objects would go, and then can neither attach
// this user's registry segment, nor connect to its hub endpoint, nor read, replace or redirect its
// settings file.

#include <VmWorkflowCore/Workflow.h>

#include "execution/ExecutingRegistry.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"
#include "workflow/WorkflowSettings.h"

#include <OstrelAdapter/ApplicationManager.h>

#include "FileFixtures.h"
#include "XdgSandbox.h"

#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Velmora::WorkflowCore;
using Velmora::OstrelAdapter::ApplicationManager;
using VmWorkflowTest::ReadFile;

namespace {

const QString kProbe = QStringLiteral(ISOLATION_PROBE_PATH);

bool Run(const QStringList& arguments, QByteArray* output = nullptr)
{
    QProcess process;
    process.start(QStringLiteral("runuser"), arguments);
    if (!process.waitForFinished(60000))
        return false;
    if (output)
        *output = process.readAllStandardOutput();
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

bool OwnedPrivately(const QString& folder)
{
    struct stat info;
    return ::lstat(QFile::encodeName(folder).constData(), &info) == 0 && S_ISDIR(info.st_mode) &&
           info.st_uid == ::geteuid() && (info.st_mode & 07777) == S_IRWXU;
}

} // namespace

class tst_Isolation : public QObject
{
    Q_OBJECT
private:
    QString m_user;
    bool m_createdUser = false;
    // Under /tmp, where the other user can reach what is opened to it.
    TestSupport::XdgSandbox m_sandbox{QStringLiteral("/tmp/vmwf-isolation-XXXXXX")};

private slots:
    void initTestCase()
    {
        if (::geteuid() != 0)
            QSKIP("needs root: it makes and uses a second user");
        if (QStandardPaths::findExecutable(QStringLiteral("runuser")).isEmpty())
            QSKIP("runuser is not installed");
        QVERIFY(m_sandbox.Setup());
        m_user = QStringLiteral("vmwf-test");
        if (!Run({QStringLiteral("-u"), m_user, QStringLiteral("--"), QStringLiteral("true")}))
        {
            m_user = QStringLiteral("vmwf-iso%1").arg(::getpid() % 100000);
            QProcess add;
            add.start(QStringLiteral("useradd"),
                      {QStringLiteral("--system"), QStringLiteral("--no-create-home"),
                       QStringLiteral("--shell"), QStringLiteral("/usr/sbin/nologin"), m_user});
            QVERIFY(add.waitForFinished(30000));
            QCOMPARE(add.exitCode(), 0);
            m_createdUser = true;
        }
        if (!Run({QStringLiteral("-u"), m_user, QStringLiteral("--"), QStringLiteral("test"),
                  QStringLiteral("-x"), kProbe}))
            QSKIP("the folders of the build are closed to the second user");
    }

    void cleanupTestCase()
    {
        ApplicationManager::Uninitialize();
        if (m_createdUser)
        {
            QProcess remove;
            remove.start(QStringLiteral("userdel"), {m_user});
            remove.waitForFinished(30000);
        }
    }

    void secondUserReachesNothingOfOurs()
    {
        const QString root = m_sandbox.Root();
        const QString shared = root + QStringLiteral("/shared");
        const QString data = m_sandbox.DataHome();
        QVERIFY(QDir().mkpath(shared));
        // Everything is open to look at; the shared folder is open to all, like the temporary one.
        QVERIFY(::chmod(QFile::encodeName(root).constData(), 0755) == 0);
        QVERIFY(::chmod(QFile::encodeName(shared).constData(), 01777) == 0);
        QVERIFY(::chmod(QFile::encodeName(data).constData(), 0755) == 0);
        // Unlike a session's runtime folder, this one is open to all, as the temporary one is.
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(shared));
        qputenv("TMPDIR", QFile::encodeName(shared));
        qunsetenv("VELMORA_PRIVATE_RUNTIME_DIR");

        // The other user plants first.
        QByteArray said;
        QVERIFY(
            Run({QStringLiteral("-u"), m_user, QStringLiteral("--"), kProbe, QStringLiteral("plant"), shared},
                &said));
        QCOMPARE(said.trimmed(), QByteArray("planted"));
        const QString plantedSegment =
            shared + QStringLiteral("/runtime-uid0/") + ExecutingRegistry::SegmentKey();
        const QByteArray planted = ReadFile(plantedSegment);
        QCOMPARE(planted.size(), qsizetype(ExecutingRegistry::SegmentSize));

        // This user registers a run, listens on the hub and keeps a setting.
        Workflow workflow;
        ImpOf(workflow)->Fields().Id = QStringLiteral("Id_Victim");
        ExecutingRegistry registry(true);
        QVERIFY(registry.Add(&workflow, int(::getpid()), int(::getpid())));
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("Victim")));
        const QString endpoint = ApplicationManager::GetInstance()->GetEndpoint();
        WorkflowSettingsStore().Write(QStringLiteral("Id_Victim"), QStringLiteral("Secret"),
                                      QStringLiteral("kept"));
        const QString settings = WorkflowSettingsFile();
        QCOMPARE(WorkflowSettingsStore().Read(QStringLiteral("Id_Victim"), QStringLiteral("Secret")),
                 QStringLiteral("kept"));

        // None of it went where the other user planted; all of it is in folders of ours alone.
        const QString runtime = qEnvironmentVariable("VELMORA_PRIVATE_RUNTIME_DIR");
        QVERIFY2(!runtime.isEmpty() && OwnedPrivately(runtime), qPrintable(runtime));
        const QString segment = runtime + QLatin1Char('/') + ExecutingRegistry::SegmentKey();
        QVERIFY(QFile::exists(segment));
        QCOMPARE(ReadFile(plantedSegment), planted);
        QVERIFY2(OwnedPrivately(QFileInfo(endpoint).absolutePath()), qPrintable(endpoint));
        QVERIFY(!endpoint.startsWith(shared + QStringLiteral("/runtime-uid0")));
        QVERIFY(!endpoint.startsWith(shared + QStringLiteral("/velmora-ostrel")));
        QVERIFY(OwnedPrivately(QFileInfo(settings).absolutePath()));

        // Now the other user tries everything it can.
        QVERIFY(Run({QStringLiteral("-u"), m_user, QStringLiteral("--"), kProbe, QStringLiteral("attack"),
                     shared, segment, endpoint, settings},
                    &said));
        const QList<QByteArray> lines = said.trimmed().split('\n');
        QCOMPARE(lines.size(), 10);
        for (const QByteArray& line : lines)
            QVERIFY2(line.startsWith("denied "), line.constData());

        // And ours is as it was.
        QCOMPARE(WorkflowSettingsStore().Read(QStringLiteral("Id_Victim"), QStringLiteral("Secret")),
                 QStringLiteral("kept"));
        const QList<ExecutingWorkflowRecord> entries = registry.ReadAll();
        QCOMPARE(entries.size(), 1);
        QCOMPARE(entries.first().WorkflowId, QStringLiteral("Id_Victim"));
        QVERIFY(!QFileInfo(QFileInfo(settings).absolutePath() + QStringLiteral("/WorkflowSettings.xml.link"))
                     .exists());
    }
};

QTEST_GUILESS_MAIN(tst_Isolation)
#include "tst_isolation.moc"
