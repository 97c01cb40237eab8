// SPDX-License-Identifier: MIT
// Whole launches: a launcher with an event loop starts the real host application, which runs the
// sample plug-in; the launcher hears the run begin and end, and refuses a second run of its own
// while one goes on.

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <VmWorkflowCore/WorkflowManager.h>

#include <OstrelAdapter/ApplicationInfo.h>
#include <OstrelAdapter/ApplicationManager.h>

#include <QCoreApplication>
#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <memory>

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::ReadFile;
using VmWorkflowTest::ReadText;
using VmWorkflowTest::Wide;
using VmWorkflowTest::WriteFile;

namespace {

const QString kHost = QStringLiteral(VMWF_HOST_EXECUTABLE);
const QString kSamplePlugin = QStringLiteral(VMWF_SAMPLE_PLUGIN);

// What the launcher heard of one run, copied while the signal's object lived.
struct Heard
{
    QString workflowId;
    Workflow* workflow = nullptr;
    int hostProcessId = 0;
    int launcherProcessId = 0;
    int status = 0;
    bool finished = false;
    QString message;
};

Heard Copy(ExecutingWorkflow* run)
{
    Heard heard;
    heard.workflow = run->GetWorkflow();
    if (heard.workflow)
        heard.workflowId = ReadText([&](WideChar* b, int s) { return heard.workflow->GetId(b, s); });
    heard.hostProcessId = run->GetHostProcessId();
    heard.launcherProcessId = run->GetLauncherProcessId();
    heard.status = run->GetErrorStatus();
    heard.finished = run->IsFinished();
    heard.message = ReadText([&](WideChar* b, int s) { return run->GetErrorMessage(b, s); });
    return heard;
}

// Passes the sample plug-in's launch arguments.
class ArgumentsContext : public HostApplicationContext
{
public:
    bool CanExecuteWorkflow(Workflow*) override { return true; }
    void AddLaunchArguments(Workflow*, WorkflowArguments* arguments) override
    {
        for (auto it = values.cbegin(); it != values.cend(); ++it)
            arguments->SetValue(Wide(it.key()), Wide(it.value()));
    }
    int GetCurrentProductId(WideChar*, int) override { return 0; }
    bool BeforeExecuteWorkflow(Workflow*) override { return true; }

    QMap<QString, QString> values;
};

QStringList Lines(const QByteArray& content)
{
    QStringList lines = QString::fromUtf8(content).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

bool NoRunOfOurs()
{
    std::unique_ptr<ExecutingWorkflowIterator> runs(
        WorkflowManager::GetInstance()->GetExecutingWorkflows(true));
    return !runs->MoveNext();
}

} // namespace

class LaunchRunTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void wholeLaunchRunsThePluginAndReportsBothEnds();
    void secondLaunchIsRefusedUntilTheExitStatusIsSet();
    void killedHostAllowsLaunchingAgain();

private:
    QStringList TemporaryFiles() const;
    Workflow* SampleWorkflow();

    VmWorkflowTest::TestEnvironment m_environment;
    QTemporaryDir m_workflows;
    std::unique_ptr<QTemporaryDir> m_run;
    ArgumentsContext m_context;
    QList<Heard> m_beginnings;
    QList<Heard> m_finishes;
};

void LaunchRunTest::initTestCase()
{
    QVERIFY(m_environment.Setup());
    QVERIFY(m_workflows.isValid());
    QVERIFY(WriteFile(m_workflows.path() + QStringLiteral("/sample.workflow"),
                      VmWorkflowTest::WorkflowDocument(VmWorkflowTest::WorkflowElement(
                          "Id=\"Id_SampleRun\" Name=\"Sample run\" Plugin=\"" +
                          QFile::encodeName(QFileInfo(kSamplePlugin).fileName()) + "\""))));
    const QString manifests = m_environment.Root() + QStringLiteral("/applications");
    QVERIFY(WriteFile(manifests + QStringLiteral("/VmWorkflowHost.xml"),
                      "<Application Id=\"Id_VmWorkflowHost\" Name=\"VmWorkflowHost\" Version=\"2017.0\" "
                      "Executable=\"" +
                          QFile::encodeName(kHost) + "\" InfoId=\"2017\"/>"));
    qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(manifests));

    QVERIFY(WorkflowManager::Initialize());
    WorkflowManager* manager = WorkflowManager::GetInstance();
    manager->SetCurrentLocale(Wide(QStringLiteral("en-US")));
    manager->SetWorkflowPluginSearchPaths(Wide(QFileInfo(kSamplePlugin).absolutePath()));
    manager->SetWorkflowSearchPaths(Wide(m_workflows.path()));
    manager->SetHostApplicationContext(&m_context);
    connect(manager->GetNotificationManager(), &WorkflowNotificationManager::WorkflowExecutionBeginning, this,
            [this](ExecutingWorkflow* run) { m_beginnings << Copy(run); });
    connect(manager->GetNotificationManager(), &WorkflowNotificationManager::WorkflowExecutionFinished, this,
            [this](ExecutingWorkflow* run) { m_finishes << Copy(run); });
}

void LaunchRunTest::init()
{
    m_run = std::make_unique<QTemporaryDir>();
    QVERIFY(m_run->isValid());
    QVERIFY(QDir(m_run->path()).mkpath(QStringLiteral("tmp")));
    qputenv("TMPDIR", QFile::encodeName(m_run->path() + QStringLiteral("/tmp")));
    m_context.values.clear();
    m_context.values.insert(QStringLiteral("ResultFile"), m_run->path() + QStringLiteral("/result.txt"));
    m_beginnings.clear();
    m_finishes.clear();
    // Every test starts with no run of this process going on.
    QVERIFY(QTest::qWaitFor(NoRunOfOurs, 30000));
}

void LaunchRunTest::cleanup()
{
    qunsetenv("VMWORKFLOWHOST_ECHO_ARGUMENTS");
    QVERIFY(QTest::qWaitFor(NoRunOfOurs, 30000));
}

void LaunchRunTest::cleanupTestCase()
{
    WorkflowManager::GetInstance()->SetHostApplicationContext(nullptr);
    WorkflowManager::Uninitialize();
}

QStringList LaunchRunTest::TemporaryFiles() const
{
    return QDir(m_run->path() + QStringLiteral("/tmp")).entryList(QDir::Files);
}

Workflow* LaunchRunTest::SampleWorkflow()
{
    return WorkflowManager::GetInstance()->GetWorkflow(Wide(QStringLiteral("Id_SampleRun")), Wide(QString()));
}

void LaunchRunTest::wholeLaunchRunsThePluginAndReportsBothEnds()
{
    const QString echo = m_run->path() + QStringLiteral("/echo.txt");
    qputenv("VMWORKFLOWHOST_ECHO_ARGUMENTS", QFile::encodeName(echo));
    Workflow* workflow = SampleWorkflow();
    QVERIFY(workflow);

    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, WorkflowBrowser));
    QTRY_COMPARE_WITH_TIMEOUT(m_finishes.size(), 1, 30000);
    QCOMPARE(m_beginnings.size(), 1);

    const qint64 self = QCoreApplication::applicationPid();
    for (const Heard& heard : {m_beginnings.first(), m_finishes.first()})
    {
        QCOMPARE(heard.workflowId, QStringLiteral("Id_SampleRun"));
        QCOMPARE(heard.workflow, workflow);
        QCOMPARE(heard.launcherProcessId, int(self));
        QVERIFY(heard.hostProcessId > 0);
        QVERIFY(heard.hostProcessId != int(self));
    }
    QCOMPARE(m_finishes.first().hostProcessId, m_beginnings.first().hostProcessId);
    QCOMPARE(m_finishes.first().status, 0);

    // The plug-in ran the copy of the workflow in the host.
    const QStringList result = Lines(ReadFile(m_run->path() + QStringLiteral("/result.txt")));
    QVERIFY2(result.size() >= 3, qPrintable(result.join(QLatin1Char('|'))));
    QCOMPARE(result.at(0), QStringLiteral("Workflow Id_SampleRun"));
    QCOMPARE(result.at(1), QStringLiteral("Name Sample run"));
    QCOMPARE(result.at(2), QStringLiteral("Prepared True"));

    // The temporary copy holds the workflow, and the host was given exactly the launch's list.
    const QStringList files = TemporaryFiles();
    QCOMPARE(files.size(), 1);
    const QString temporaryPath = m_run->path() + QStringLiteral("/tmp/") + files.first();
    Workflow copy;
    QVERIFY(copy.Load(Wide(temporaryPath), Wide(QStringLiteral("Id_SampleRun"))));
    QCOMPARE(ReadText([&](WideChar* b, int s) { return copy.GetName(b, s); }), QStringLiteral("Sample run"));
    const QStringList expected{
        temporaryPath + QStringLiteral("?Id_SampleRun"),
        QStringLiteral("/Locale=en-US"),
        QStringLiteral("/PluginSearchPaths=") + QFileInfo(kSamplePlugin).absolutePath(),
        QStringLiteral("/WorkflowSearchPath=") + m_workflows.path(),
        QStringLiteral("/ParentProcessId=") + QString::number(self),
        QStringLiteral("/ResultFile=") + m_run->path() + QStringLiteral("/result.txt"),
        QStringLiteral("/SamplePluginPrepared=True"),
    };
    QCOMPARE(Lines(ReadFile(echo)), expected);
}

void LaunchRunTest::secondLaunchIsRefusedUntilTheExitStatusIsSet()
{
    Workflow* workflow = SampleWorkflow();
    QVERIFY(workflow);
    m_context.values.insert(QStringLiteral("DelayMs"), QStringLiteral("3000"));
    m_context.values.insert(QStringLiteral("ExitStatus"), QStringLiteral("7"));
    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));
    QTRY_COMPARE_WITH_TIMEOUT(m_beginnings.size(), 1, 30000);
    QCOMPARE(m_finishes.size(), 0);

    // While the run goes on: refused, and nothing more is written.
    QCOMPARE(TemporaryFiles().size(), 1);
    QVERIFY(!WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));
    QCOMPARE(TemporaryFiles().size(), 1);

    QTRY_COMPARE_WITH_TIMEOUT(m_finishes.size(), 1, 30000);
    QCOMPARE(m_finishes.first().status, 7);
    QVERIFY(m_finishes.first().finished);
    QCOMPARE(m_finishes.first().message, QStringLiteral("The run was asked to end with status 7."));

    // A finished run no longer holds the launcher back, whether or not its host has gone yet.
    m_context.values.remove(QStringLiteral("DelayMs"));
    m_context.values.remove(QStringLiteral("ExitStatus"));
    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));
    QCOMPARE(TemporaryFiles().size(), 2);
    QTRY_COMPARE_WITH_TIMEOUT(m_finishes.size(), 2, 30000);
}

void LaunchRunTest::killedHostAllowsLaunchingAgain()
{
    Workflow* workflow = SampleWorkflow();
    QVERIFY(workflow);
    m_context.values.insert(QStringLiteral("DelayMs"), QStringLiteral("30000"));
    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));
    QTRY_COMPARE_WITH_TIMEOUT(m_beginnings.size(), 1, 30000);
    QVERIFY(!WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));

    const int host = m_beginnings.first().hostProcessId;
    QVERIFY(host > 0);
    QCOMPARE(::kill(host, SIGKILL), 0);
    // The host never reports; its entry stops counting once the process is gone.
    QVERIFY(QTest::qWaitFor(NoRunOfOurs, 30000));
    QCOMPARE(m_finishes.size(), 0);

    m_context.values.remove(QStringLiteral("DelayMs"));
    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));
    QTRY_COMPARE_WITH_TIMEOUT(m_finishes.size(), 1, 30000);
}

QTEST_GUILESS_MAIN(LaunchRunTest)
#include "tst_launchrun.moc"
