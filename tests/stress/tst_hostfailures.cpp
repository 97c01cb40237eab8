// Hosts that fail: the real host killed at random moments of its run, a host that never links, a
// host that hangs without ever linking, and hosts that end without a status of their own. The
// launcher must never hang, must never go on refusing once the host is gone, and the two run
// signals it emits must stay consistent: an end only after the beginning of the same run, each at
// most once per run.

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <VmWorkflowCore/WorkflowManager.h>

#include <QCoreApplication>
#include <QDir>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <cerrno>

#include <signal.h>

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::ReadFile;
using VmWorkflowTest::Wide;
using VmWorkflowTest::WriteFile;

namespace {

const QString kHost = QStringLiteral(VMWF_HOST_EXECUTABLE);
const QString kSamplePlugin = QStringLiteral(VMWF_SAMPLE_PLUGIN);

struct Heard
{
    int hostProcessId = 0;
    int status = 0;
};

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

bool NoRunOfOurs()
{
    std::unique_ptr<ExecutingWorkflowIterator> runs(
        WorkflowManager::GetInstance()->GetExecutingWorkflows(true));
    return !runs->MoveNext();
}

// The processes whose command line mentions text (the launch's temporary folder is unique).
QList<int> ProcessesMentioning(const QString& text)
{
    QList<int> found;
    const QByteArray wanted = text.toLocal8Bit();
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs))
    {
        bool number = false;
        const int pid = entry.toInt(&number);
        if (!number || pid == int(QCoreApplication::applicationPid()))
            continue;
        QFile cmdline(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (cmdline.open(QIODevice::ReadOnly) && cmdline.readAll().contains(wanted))
            found << pid;
    }
    return found;
}

bool Gone(int pid)
{
    return ::kill(pid, 0) != 0 && errno == ESRCH;
}

} // namespace

class tst_HostFailures : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void hostKilledAtRandomMoments();
    void hostThatNeverLinks();
    void hostThatHangs();
    void hostsThatEndWithoutAStatus();

private:
    // Points the hub's manifest of the host at program and waits until the hub has seen it.
    void UseHost(const QString& program);
    QString Script(const QString& name, const QByteArray& body);
    Workflow* SampleWorkflow();
    void CheckSignalsConsistent();

    VmWorkflowTest::TestEnvironment m_environment;
    QTemporaryDir m_workflows;
    std::unique_ptr<QTemporaryDir> m_run;
    ArgumentsContext m_context;
    QList<Heard> m_beginnings;
    QList<Heard> m_finishes;
    QString m_manifests;
    QString m_pidFile;
};

void tst_HostFailures::initTestCase()
{
    QVERIFY(m_environment.Setup());
    QVERIFY(m_workflows.isValid());
    QVERIFY(WriteFile(m_workflows.path() + QStringLiteral("/sample.workflow"),
                      VmWorkflowTest::WorkflowDocument(VmWorkflowTest::WorkflowElement(
                          "Id=\"Id_SampleRun\" Name=\"Sample run\" Plugin=\"" +
                          QFile::encodeName(QFileInfo(kSamplePlugin).fileName()) + "\""))));
    m_manifests = m_environment.Root() + QStringLiteral("/applications");
    m_pidFile = m_environment.Root() + QStringLiteral("/script-pids");
    QVERIFY(QDir().mkpath(m_manifests));
    qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(m_manifests));
    UseHost(kHost);

    QVERIFY(WorkflowManager::Initialize());
    WorkflowManager* manager = WorkflowManager::GetInstance();
    manager->SetCurrentLocale(Wide(QStringLiteral("en-US")));
    manager->SetWorkflowPluginSearchPaths(Wide(QFileInfo(kSamplePlugin).absolutePath()));
    manager->SetWorkflowSearchPaths(Wide(m_workflows.path()));
    manager->SetHostApplicationContext(&m_context);
    connect(manager->GetNotificationManager(), &WorkflowNotificationManager::WorkflowExecutionBeginning, this,
            [this](ExecutingWorkflow* run) {
                m_beginnings << Heard{run->GetHostProcessId(), run->GetErrorStatus()};
            });
    connect(manager->GetNotificationManager(), &WorkflowNotificationManager::WorkflowExecutionFinished, this,
            [this](ExecutingWorkflow* run) {
                m_finishes << Heard{run->GetHostProcessId(), run->GetErrorStatus()};
            });
}

void tst_HostFailures::init()
{
    m_run = std::make_unique<QTemporaryDir>();
    QVERIFY(m_run->isValid());
    QVERIFY(QDir(m_run->path()).mkpath(QStringLiteral("tmp")));
    qputenv("TMPDIR", QFile::encodeName(m_run->path() + QStringLiteral("/tmp")));
    m_context.values.clear();
    m_context.values.insert(QStringLiteral("ResultFile"), m_run->path() + QStringLiteral("/result.txt"));
    m_beginnings.clear();
    m_finishes.clear();
    QVERIFY(QTest::qWaitFor(NoRunOfOurs, 30000));
}

void tst_HostFailures::cleanup()
{
    // Nothing of a test outlives it: stand-in hosts that are still there are ended here.
    for (const QByteArray& line : ReadFile(m_pidFile).split('\n'))
    {
        if (line.toInt() > 0)
            ::kill(line.toInt(), SIGKILL);
    }
    QFile::remove(m_pidFile);
    for (int pid : ProcessesMentioning(m_run->path()))
        ::kill(pid, SIGKILL);
    QVERIFY(QTest::qWaitFor(NoRunOfOurs, 30000));
    UseHost(kHost);
}

void tst_HostFailures::cleanupTestCase()
{
    WorkflowManager::GetInstance()->SetHostApplicationContext(nullptr);
    WorkflowManager::Uninitialize();
}

void tst_HostFailures::UseHost(const QString& program)
{
    const QString manifest = m_manifests + QStringLiteral("/VmWorkflowHost.xml");
    const QByteArray content =
        "<Application Id=\"Id_VmWorkflowHost\" Name=\"VmWorkflowHost\" Version=\"2017.0\" "
        "Executable=\"" +
        QFile::encodeName(program) + "\" InfoId=\"2017\"/>";
    if (ReadFile(manifest) == content)
        return;
    QVERIFY(WriteFile(manifest, content));
    // The hub looks at its manifests again at most twice a second.
    QTest::qWait(1200);
}

QString tst_HostFailures::Script(const QString& name, const QByteArray& body)
{
    const QString path = m_environment.Root() + QLatin1Char('/') + name;
    WriteFile(path, "#!/bin/sh\necho $$ >> '" + QFile::encodeName(m_pidFile) + "'\n" + body + "\n");
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

Workflow* tst_HostFailures::SampleWorkflow()
{
    return WorkflowManager::GetInstance()->GetWorkflow(Wide(QStringLiteral("Id_SampleRun")), Wide(QString()));
}

void tst_HostFailures::CheckSignalsConsistent()
{
    QList<int> begun;
    for (const Heard& heard : m_beginnings)
    {
        QVERIFY(heard.hostProcessId > 0);
        QVERIFY2(!begun.contains(heard.hostProcessId), "one run began twice");
        begun << heard.hostProcessId;
    }
    QList<int> ended;
    for (const Heard& heard : m_finishes)
    {
        QVERIFY2(begun.contains(heard.hostProcessId), "a run ended that never began");
        QVERIFY2(!ended.contains(heard.hostProcessId), "one run ended twice");
        ended << heard.hostProcessId;
    }
}

void tst_HostFailures::hostKilledAtRandomMoments()
{
    Workflow* workflow = SampleWorkflow();
    QVERIFY(workflow);
    WorkflowManager* manager = WorkflowManager::GetInstance();
    m_context.values.insert(QStringLiteral("DelayMs"), QStringLiteral("1500"));
    int killedRunning = 0;
    int killedBefore = 0;
    int endedFirst = 0;
    for (int round = 0; round < 12; ++round)
    {
        const int beginningsBefore = int(m_beginnings.size());
        QVERIFY2(manager->ExecuteWorkflow(workflow, ApplicationMenu),
                 "a launch was refused with no run going on");
        const QString mark = m_run->path() + QStringLiteral("/tmp/");
        QList<int> hosts;
        QVERIFY(QTest::qWaitFor(
            [&] {
                return !(hosts = ProcessesMentioning(mark)).isEmpty() ||
                       int(m_beginnings.size()) > beginningsBefore;
            },
            10000));
        // Anywhere from before the host has registered to after the run has ended.
        QTest::qWait(int(QRandomGenerator::global()->bounded(3000)));
        hosts += ProcessesMentioning(mark);
        if (int(m_beginnings.size()) > beginningsBefore)
            hosts << m_beginnings.last().hostProcessId;
        const bool wasRunning = int(m_beginnings.size()) > beginningsBefore;
        const bool hadEnded = m_finishes.size() == m_beginnings.size() && wasRunning;
        for (int host : hosts)
            ::kill(host, SIGKILL);
        for (int host : hosts)
            QVERIFY(QTest::qWaitFor([host] { return Gone(host); }, 10000));
        hadEnded ? ++endedFirst : wasRunning ? ++killedRunning : ++killedBefore;
        // Once the host is gone the launcher takes the next launch.
        QVERIFY(QTest::qWaitFor(NoRunOfOurs, 30000));
        QTest::qWait(100); // an end announced just before the kill still arrives
        CheckSignalsConsistent();
        if (QTest::currentTestFailed())
            return;
    }
    qInfo("12 hosts killed: %d before the run began, %d during the run, %d after its end; %d beginnings, %d "
          "ends heard",
          killedBefore, killedRunning, endedFirst, int(m_beginnings.size()), int(m_finishes.size()));
    // And a last run goes through whole.
    m_context.values.remove(QStringLiteral("DelayMs"));
    const int finishesBefore = int(m_finishes.size());
    QVERIFY(manager->ExecuteWorkflow(workflow, ApplicationMenu));
    QVERIFY(QTest::qWaitFor([&] { return int(m_finishes.size()) == finishesBefore + 1; }, 30000));
    CheckSignalsConsistent();
}

void tst_HostFailures::hostThatNeverLinks()
{
    UseHost(Script(QStringLiteral("never-links.sh"), "sleep 3"));
    Workflow* workflow = SampleWorkflow();
    QVERIFY(workflow);
    WorkflowManager* manager = WorkflowManager::GetInstance();
    // The launch returns although the host never answers, and it never holds the next one back.
    QVERIFY(manager->ExecuteWorkflow(workflow, ApplicationMenu));
    QVERIFY(NoRunOfOurs());
    QVERIFY(manager->ExecuteWorkflow(workflow, ApplicationMenu));
    QTest::qWait(3500);
    QCOMPARE(m_beginnings.size(), 0);
    QCOMPARE(m_finishes.size(), 0);
    QVERIFY(manager->ExecuteWorkflow(workflow, ApplicationMenu));
}

void tst_HostFailures::hostThatHangs()
{
    UseHost(Script(QStringLiteral("hangs.sh"), "exec sleep 300"));
    Workflow* workflow = SampleWorkflow();
    QVERIFY(workflow);
    WorkflowManager* manager = WorkflowManager::GetInstance();
    for (int i = 0; i < 3; ++i)
        QVERIFY2(manager->ExecuteWorkflow(workflow, ApplicationMenu),
                 "a hung host that never ran holds launches back");
    QCOMPARE(m_beginnings.size(), 0);
    QCOMPARE(ReadFile(m_pidFile).count('\n'), 3);

    // A real host whose run hangs holds this launcher back while it lives, and no longer once killed.
    UseHost(kHost);
    m_context.values.insert(QStringLiteral("DelayMs"), QStringLiteral("60000"));
    QVERIFY(manager->ExecuteWorkflow(workflow, ApplicationMenu));
    QVERIFY(QTest::qWaitFor([this] { return m_beginnings.size() == 1; }, 30000));
    QVERIFY(!manager->ExecuteWorkflow(workflow, ApplicationMenu));
    const int host = m_beginnings.first().hostProcessId;
    QCOMPARE(::kill(host, SIGKILL), 0);
    QVERIFY(QTest::qWaitFor([host] { return Gone(host); }, 10000));
    QVERIFY(QTest::qWaitFor(NoRunOfOurs, 30000));
    m_context.values.remove(QStringLiteral("DelayMs"));
    QVERIFY(manager->ExecuteWorkflow(workflow, ApplicationMenu));
    QVERIFY(QTest::qWaitFor([this] { return m_finishes.size() == 1; }, 30000));
    CheckSignalsConsistent();
}

void tst_HostFailures::hostsThatEndWithoutAStatus()
{
    Workflow* workflow = SampleWorkflow();
    QVERIFY(workflow);
    WorkflowManager* manager = WorkflowManager::GetInstance();

    // A run that ends with status 0 is announced as ended and counts as not finished; once its
    // host has gone it holds nothing back.
    QVERIFY(manager->ExecuteWorkflow(workflow, ApplicationMenu));
    QVERIFY(QTest::qWaitFor([this] { return m_finishes.size() == 1; }, 30000));
    QCOMPARE(m_finishes.first().status, 0);
    QVERIFY(QTest::qWaitFor(NoRunOfOurs, 30000));
    QVERIFY(manager->ExecuteWorkflow(workflow, ApplicationMenu));
    QVERIFY(QTest::qWaitFor([this] { return m_finishes.size() == 2; }, 30000));

    // A host that exits at once, with a failure code and nothing in the registry.
    UseHost(Script(QStringLiteral("exits.sh"), "exit 3"));
    for (int i = 0; i < 3; ++i)
        QVERIFY(manager->ExecuteWorkflow(workflow, ApplicationMenu));
    QVERIFY(NoRunOfOurs());
    CheckSignalsConsistent();
    QCOMPARE(m_beginnings.size(), 2);
}

QTEST_GUILESS_MAIN(tst_HostFailures)
#include "tst_hostfailures.moc"
