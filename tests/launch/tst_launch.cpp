// SPDX-License-Identifier: MIT
// Launching a workflow from a launcher process: the refusals, the temporary copy, the host's
// command line and the choice of the host's version, observed through real started processes.

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include "execution/Launch.h"

#include <VmWorkflowCore/WorkflowManager.h>

#include <OstrelAdapter/ApplicationInfo.h>
#include <OstrelAdapter/ApplicationManager.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QLibrary>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::ReadFile;
using VmWorkflowTest::ReadText;
using VmWorkflowTest::Wide;
using VmWorkflowTest::WriteFile;

namespace {

const QString kRecorder = QStringLiteral(VMWF_LAUNCH_RECORDER);
const QString kHost = QStringLiteral(VMWF_HOST_EXECUTABLE);
const QString kRefusingPlugin = QStringLiteral(VMWF_REFUSING_PLUGIN);

class RecordingContext : public HostApplicationContext
{
public:
    bool CanExecuteWorkflow(Workflow*) override
    {
        calls << QStringLiteral("CanExecuteWorkflow");
        return allowExecute;
    }
    void AddLaunchArguments(Workflow*, WorkflowArguments* arguments) override
    {
        calls << QStringLiteral("AddLaunchArguments");
        for (auto it = extraArguments.cbegin(); it != extraArguments.cend(); ++it)
            arguments->SetValue(Wide(it.key()), Wide(it.value()));
    }
    int GetCurrentProductId(WideChar*, int) override { return 0; }
    bool BeforeExecuteWorkflow(Workflow*) override
    {
        calls << QStringLiteral("BeforeExecuteWorkflow");
        return allowBefore;
    }

    QStringList calls;
    bool allowExecute = true;
    bool allowBefore = true;
    QMap<QString, QString> extraArguments;
};

// The hub looks at its manifest folders again only now and then; a test goes on once the hub
// offers the host it just wrote.
bool WaitForHost(const QString& executable)
{
    return QTest::qWaitFor(
        [&] {
            const auto hosts =
                Velmora::OstrelAdapter::ApplicationManager::GetInstance()->GetInstalledApplications(
                    QStringLiteral("Id_VmWorkflowHost"), QString());
            for (const auto& host : hosts)
            {
                if (QFileInfo(host.GetExecutable()) == QFileInfo(executable))
                    return true;
            }
            return false;
        },
        10000);
}

QStringList Lines(const QByteArray& content)
{
    QStringList lines = QString::fromUtf8(content).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

} // namespace

class LaunchTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void nullWorkflowIsRefused();
    void contextVetoRefusesBeforeAnythingElse();
    void beforeExecuteRefusalWritesNothing();
    void pluginRefusalWritesNothing();
    void hostCommandLineIsExactlyTheLaunchArguments();
    void temporaryFileHoldsTheWorkflow();
    void emptyIdGivesFileArgumentWithoutQuestionMark();
    void longNameKeepsTheWholeUuid();
    void temporaryNameIsCutBeforeTheUuid();
    void missingHostExecutableFailsWithoutBox();
    void hostVersionSelectsTheInstalledHost_data();
    void hostVersionSelectsTheInstalledHost();
    void hostVersionIsParsed_data();
    void hostVersionIsParsed();

private:
    QString StartedRecorderManifest(const QString& version, const QString& folderName);
    QStringList WaitForRecord();
    QStringList TemporaryFiles() const;
    Workflow* CatalogWorkflow(const QString& id);

    VmWorkflowTest::TestEnvironment m_environment;
    QTemporaryDir m_workflows;
    std::unique_ptr<QTemporaryDir> m_runFolder;
    RecordingContext m_context;
    int m_manifestFolders = 0;
};

void LaunchTest::initTestCase()
{
    QVERIFY(m_environment.Setup());
    QVERIFY(m_workflows.isValid());
    const QByteArray workflows = VmWorkflowTest::WorkflowDocument(
        VmWorkflowTest::WorkflowElement(R"(Id="Id_Plain" Name="Plain launch")") +
        VmWorkflowTest::WorkflowElement(R"(Id="Id_Other" Name="Other launch")") +
        VmWorkflowTest::WorkflowElement("Id=\"Id_Refused\" Name=\"Refused\" Plugin=\"" +
                                        QFile::encodeName(QFileInfo(kRefusingPlugin).fileName()) + "\"") +
        VmWorkflowTest::WorkflowElement("Id=\"Id_RefusedToo\" Name=\"Refused too\" Plugin=\"" +
                                        QFile::encodeName(QFileInfo(kRefusingPlugin).fileName()) + "\""));
    QVERIFY(WriteFile(m_workflows.path() + QStringLiteral("/launch.workflow"), workflows));
    QVERIFY(WorkflowManager::Initialize());
    WorkflowManager::GetInstance()->SetWorkflowSearchPaths(Wide(m_workflows.path()));
    WorkflowManager::GetInstance()->SetCurrentLocale(Wide(QStringLiteral("de-DE")));
}

void LaunchTest::init()
{
    // Every test sees its own temporary folder, so what a launch writes is what the test finds.
    m_runFolder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_runFolder->isValid());
    QVERIFY(QDir(m_runFolder->path()).mkpath(QStringLiteral("tmp")));
    qputenv("TMPDIR", QFile::encodeName(m_runFolder->path() + QStringLiteral("/tmp")));
    qputenv("VMWF_LAUNCH_RECORD", QFile::encodeName(m_runFolder->path() + QStringLiteral("/record.txt")));
    m_context = RecordingContext();
    WorkflowManager::GetInstance()->SetHostApplicationContext(&m_context);
}

void LaunchTest::cleanup()
{
    WorkflowManager::GetInstance()->SetHostApplicationContext(nullptr);
    qunsetenv("VMWORKFLOWHOST_ECHO_ARGUMENTS");
}

void LaunchTest::cleanupTestCase()
{
    WorkflowManager::Uninitialize();
}

// A fresh manifest folder holding one stand-in host of that version, copied into its own folder
// so that the record tells which manifest was started. Returns the stand-in's path.
QString LaunchTest::StartedRecorderManifest(const QString& version, const QString& folderName)
{
    const QString folder = m_runFolder->path() + QLatin1Char('/') + folderName;
    QDir().mkpath(folder);
    const QString program = folder + QStringLiteral("/launch_recorder");
    QFile::copy(kRecorder, program);
    QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString manifests = m_runFolder->path() + QStringLiteral("/applications");
    const QByteArray manifest =
        "<?xml version=\"1.0\"?>\n<Application Id=\"Id_VmWorkflowHost\" Name=\"VmWorkflowHost\" "
        "Version=\"" +
        version.toUtf8() + "\" Executable=\"" + QFile::encodeName(program) + "\" InfoId=\"2017\"/>\n";
    WriteFile(manifests + QLatin1Char('/') + folderName + QStringLiteral(".xml"), manifest);
    qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(manifests));
    if (!WaitForHost(program))
        qWarning("the hub never offered %s", qPrintable(program));
    return QFileInfo(program).canonicalFilePath();
}

QStringList LaunchTest::WaitForRecord()
{
    const QString record = m_runFolder->path() + QStringLiteral("/record.txt");
    if (!QTest::qWaitFor([&] { return QFileInfo::exists(record); }, 15000))
        return QStringList();
    return Lines(ReadFile(record));
}

QStringList LaunchTest::TemporaryFiles() const
{
    return QDir(m_runFolder->path() + QStringLiteral("/tmp")).entryList(QDir::Files);
}

Workflow* LaunchTest::CatalogWorkflow(const QString& id)
{
    return WorkflowManager::GetInstance()->GetWorkflow(Wide(id), Wide(QString()));
}

void LaunchTest::nullWorkflowIsRefused()
{
    StartedRecorderManifest(QStringLiteral("2017.0"), QStringLiteral("host"));
    QVERIFY(!WorkflowManager::GetInstance()->ExecuteWorkflow(nullptr, ApplicationMenu));
    QVERIFY(m_context.calls.isEmpty());
    QVERIFY(TemporaryFiles().isEmpty());
}

void LaunchTest::contextVetoRefusesBeforeAnythingElse()
{
    StartedRecorderManifest(QStringLiteral("2017.0"), QStringLiteral("host"));
    Workflow* workflow = CatalogWorkflow(QStringLiteral("Id_Plain"));
    QVERIFY(workflow);
    m_context.allowExecute = false;
    QVERIFY(!WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));
    QCOMPARE(m_context.calls, QStringList{QStringLiteral("CanExecuteWorkflow")});
    QVERIFY(TemporaryFiles().isEmpty());
    QTest::qWait(300);
    QVERIFY(!QFileInfo::exists(m_runFolder->path() + QStringLiteral("/record.txt")));
}

void LaunchTest::beforeExecuteRefusalWritesNothing()
{
    StartedRecorderManifest(QStringLiteral("2017.0"), QStringLiteral("host"));
    Workflow* workflow = CatalogWorkflow(QStringLiteral("Id_Plain"));
    QVERIFY(workflow);
    m_context.allowBefore = false;
    QVERIFY(!WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, WorkflowBrowser));
    QCOMPARE(m_context.calls,
             (QStringList{QStringLiteral("CanExecuteWorkflow"), QStringLiteral("BeforeExecuteWorkflow")}));
    QVERIFY(TemporaryFiles().isEmpty());
    QTest::qWait(300);
    QVERIFY(!QFileInfo::exists(m_runFolder->path() + QStringLiteral("/record.txt")));
}

void LaunchTest::pluginRefusalWritesNothing()
{
    StartedRecorderManifest(QStringLiteral("2017.0"), QStringLiteral("host"));
    WorkflowManager::GetInstance()->SetWorkflowPluginSearchPaths(
        Wide(QFileInfo(kRefusingPlugin).absolutePath()));
    for (const QString& id :
         {QStringLiteral("Id_Refused"), QStringLiteral("Id_RefusedToo"), QStringLiteral("Id_Refused")})
    {
        m_context.calls.clear();
        Workflow* workflow = CatalogWorkflow(id);
        QVERIFY(workflow);
        QVERIFY(!WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));
        // The plug-in is asked after the host context, and its refusal comes before the arguments.
        QCOMPARE(m_context.calls, (QStringList{QStringLiteral("CanExecuteWorkflow"),
                                               QStringLiteral("BeforeExecuteWorkflow")}));
    }
    WorkflowManager::GetInstance()->SetWorkflowPluginSearchPaths(Wide(QString()));
    QVERIFY(TemporaryFiles().isEmpty());

    // The manager loaded the plug-in; the same library answers how often it was asked.
    QLibrary library(kRefusingPlugin);
    QVERIFY(library.load());
    auto requests = reinterpret_cast<int (*)()>(library.resolve("RefusingPluginLaunchHandlerRequests"));
    auto prepared = reinterpret_cast<int (*)()>(library.resolve("RefusingPluginPrepareLaunchCalls"));
    QVERIFY(requests && prepared);
    QCOMPARE(requests(), 1);
    QCOMPARE(prepared(), 3);
    QTest::qWait(300);
    QVERIFY(!QFileInfo::exists(m_runFolder->path() + QStringLiteral("/record.txt")));
}

void LaunchTest::hostCommandLineIsExactlyTheLaunchArguments()
{
    // The real host, in its test mode, says what it was given.
    const QString manifests = m_runFolder->path() + QStringLiteral("/applications");
    WriteFile(
        manifests + QStringLiteral("/VmWorkflowHost.xml"),
        "<Application Id=\"Id_VmWorkflowHost\" Name=\"VmWorkflowHost\" Version=\"2017.0\" Executable=\"" +
            QFile::encodeName(kHost) + "\" InfoId=\"2017\"/>");
    qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(manifests));
    QVERIFY(WaitForHost(kHost));
    const QString echo = m_runFolder->path() + QStringLiteral("/echo.txt");
    qputenv("VMWORKFLOWHOST_ECHO_ARGUMENTS", QFile::encodeName(echo));

    Workflow* workflow = CatalogWorkflow(QStringLiteral("Id_Plain"));
    QVERIFY(workflow);
    m_context.extraArguments.insert(QStringLiteral("Zeta"), QStringLiteral("last"));
    m_context.extraArguments.insert(QStringLiteral("Alpha"), QStringLiteral("first=still first"));
    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, Ribbon));
    QCOMPARE(m_context.calls,
             (QStringList{QStringLiteral("CanExecuteWorkflow"), QStringLiteral("BeforeExecuteWorkflow"),
                          QStringLiteral("AddLaunchArguments")}));

    QVERIFY(QTest::qWaitFor([&] { return QFileInfo::exists(echo); }, 15000));
    const QStringList arguments = Lines(ReadFile(echo));
    const QStringList files = TemporaryFiles();
    QCOMPARE(files.size(), 1);
    const QString temporaryPath = m_runFolder->path() + QStringLiteral("/tmp/") + files.first();
    const QStringList expected{
        temporaryPath + QStringLiteral("?Id_Plain"),
        QStringLiteral("/Locale=de-DE"),
        QStringLiteral("/PluginSearchPaths="),
        QStringLiteral("/WorkflowSearchPath=") + m_workflows.path(),
        QStringLiteral("/ParentProcessId=") + QString::number(QCoreApplication::applicationPid()),
        QStringLiteral("/Alpha=first=still first"),
        QStringLiteral("/Zeta=last"),
    };
    QCOMPARE(arguments, expected);
}

void LaunchTest::temporaryFileHoldsTheWorkflow()
{
    StartedRecorderManifest(QStringLiteral("2017.0"), QStringLiteral("host"));
    Workflow* workflow = CatalogWorkflow(QStringLiteral("Id_Other"));
    QVERIFY(workflow);
    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));
    const QStringList files = TemporaryFiles();
    QCOMPARE(files.size(), 1);
    QVERIFY(QRegularExpression(QStringLiteral(R"(^Temp_Other launch_\{[0-9a-f-]{36}\}\.workflow$)"))
                .match(files.first())
                .hasMatch());
    Workflow copy;
    const QString path = m_runFolder->path() + QStringLiteral("/tmp/") + files.first();
    QVERIFY(copy.Load(Wide(path), Wide(QStringLiteral("Id_Other"))));
    QCOMPARE(ReadText([&](WideChar* b, int s) { return copy.GetName(b, s); }),
             QStringLiteral("Other launch"));
    const QStringList record = WaitForRecord();
    QVERIFY(record.size() > 1);
    QCOMPARE(record.at(1), path + QStringLiteral("?Id_Other"));
}

void LaunchTest::emptyIdGivesFileArgumentWithoutQuestionMark()
{
    StartedRecorderManifest(QStringLiteral("2017.0"), QStringLiteral("host"));
    const QString source = m_runFolder->path() + QStringLiteral("/noid.workflow");
    QVERIFY(WriteFile(source,
                      VmWorkflowTest::WorkflowDocument(VmWorkflowTest::WorkflowElement(R"(Name="No id")"))));
    Workflow workflow;
    QVERIFY(workflow.Load(Wide(source), Wide(QString())));
    QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetId(b, s); }), QString());
    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(&workflow, ApplicationMenu));
    const QStringList record = WaitForRecord();
    QVERIFY(record.size() > 1);
    const QStringList files = TemporaryFiles();
    QCOMPARE(files.size(), 1);
    QCOMPARE(record.at(1), m_runFolder->path() + QStringLiteral("/tmp/") + files.first());
    QVERIFY(!record.at(1).contains(QLatin1Char('?')));
}

void LaunchTest::longNameKeepsTheWholeUuid()
{
    StartedRecorderManifest(QStringLiteral("2017.0"), QStringLiteral("host"));
    // "Temp_" + name + "_" + 38-character uuid makes 300 characters.
    const QString name = QString(300 - 5 - 1 - 38, QLatin1Char('n'));
    Workflow* workflow = CatalogWorkflow(QStringLiteral("Id_Plain"));
    QVERIFY(workflow);
    Workflow copy;
    copy.CopyFrom(workflow);
    copy.SetName(Wide(name));
    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(&copy, ApplicationMenu));
    const QStringList files = TemporaryFiles();
    QCOMPARE(files.size(), 1);
    const QString temporaryName = QFileInfo(files.first()).completeBaseName();
    QCOMPARE(temporaryName.size(), 246);
    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral(R"(^Temp_(n+)_(\{[0-9a-f-]{36}\})$)")).match(temporaryName);
    QVERIFY2(match.hasMatch(), qPrintable(temporaryName));
    QCOMPARE(match.captured(1).size(), 246 - 5 - 1 - 38);
    const QStringList record = WaitForRecord();
    QVERIFY(record.size() > 1);
    QCOMPARE(record.at(1),
             m_runFolder->path() + QStringLiteral("/tmp/") + files.first() + QStringLiteral("?Id_Plain"));
}

void LaunchTest::temporaryNameIsCutBeforeTheUuid()
{
    const QString uuid = QStringLiteral("{01234567-89ab-cdef-0123-456789abcdef}");
    QCOMPARE(TemporaryLaunchName(QStringLiteral("Short"), uuid), QStringLiteral("Temp_Short_") + uuid);
    const QString exact = QString(246 - 44, QLatin1Char('x'));
    QCOMPARE(TemporaryLaunchName(exact, uuid).size(), 246);
    QCOMPARE(TemporaryLaunchName(exact, uuid), QStringLiteral("Temp_") + exact + QLatin1Char('_') + uuid);
    // Underscores inside the name do not move the cut: it always ends the name part.
    const QString withSeparators = QStringLiteral("a_b_") + QString(300, QLatin1Char('c'));
    const QString cut = TemporaryLaunchName(withSeparators, uuid);
    QCOMPARE(cut.size(), 246);
    QVERIFY(cut.startsWith(QStringLiteral("Temp_a_b_ccc")));
    QVERIFY(cut.endsWith(QStringLiteral("c_") + uuid));
}

void LaunchTest::missingHostExecutableFailsWithoutBox()
{
    const QString manifests = m_runFolder->path() + QStringLiteral("/applications");
    WriteFile(
        manifests + QStringLiteral("/VmWorkflowHost.xml"),
        "<Application Id=\"Id_VmWorkflowHost\" Name=\"VmWorkflowHost\" Version=\"2017.0\" Executable=\"" +
            QFile::encodeName(m_runFolder->path()) + "/no-such-host\" InfoId=\"2017\"/>");
    qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(manifests));
    QVERIFY(WaitForHost(m_runFolder->path() + QStringLiteral("/no-such-host")));
    Workflow* workflow = CatalogWorkflow(QStringLiteral("Id_Plain"));
    QVERIFY(workflow);
    // Without widgets there is nothing to show, and nothing may block.
    QVERIFY(!WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));
    // The copy is written before the start is tried and stays.
    QCOMPARE(TemporaryFiles().size(), 1);
}

void LaunchTest::hostVersionSelectsTheInstalledHost_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QString>("chosen");
    QTest::newRow("2016.1") << QStringLiteral("2016.1") << QStringLiteral("host2016");
    QTest::newRow("2016 alone") << QStringLiteral("2016") << QStringLiteral("host2017");
    QTest::newRow("2016.1.5") << QStringLiteral("2016.1.5") << QStringLiteral("host2017");
    QTest::newRow("empty") << QString() << QStringLiteral("host2017");
    QTest::newRow("missing") << QStringLiteral("<none>") << QStringLiteral("host2017");
}

void LaunchTest::hostVersionSelectsTheInstalledHost()
{
    QFETCH(QString, setting);
    QFETCH(QString, chosen);
    // Two versions of the host installed side by side, the older one first.
    const QString host2016 = StartedRecorderManifest(QStringLiteral("2016.1"), QStringLiteral("host2016"));
    const QString host2017 = StartedRecorderManifest(QStringLiteral("2017.0"), QStringLiteral("host2017"));
    const QString settings = m_environment.ConfigDirs() + QStringLiteral("/Velmora/Workflow/2015.0.conf");
    QFile::remove(settings);
    if (setting != QLatin1String("<none>"))
    {
        QVERIFY(WriteFile(settings, "[General]\nWorkflowHostVersion=" + setting.toUtf8() + "\n"));
        // Each row's file must look new to the settings reader, whatever its size.
        static int row = 0;
        QFile file(settings);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(++row * 10),
                                 QFileDevice::FileModificationTime));
    }
    QCOMPARE(ReadHostVersionSetting(), setting == QLatin1String("<none>") ? QString() : setting);

    Workflow* workflow = CatalogWorkflow(QStringLiteral("Id_Plain"));
    QVERIFY(workflow);
    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu));
    const QStringList record = WaitForRecord();
    QVERIFY(!record.isEmpty());
    QCOMPARE(record.first(), chosen == QLatin1String("host2016") ? host2016 : host2017);
    QFile::remove(settings);
}

void LaunchTest::hostVersionIsParsed_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<uint>("major");
    QTest::addColumn<uint>("minor");
    QTest::addColumn<bool>("fromSettings");
    QTest::newRow("major and minor") << QStringLiteral("2016.1") << 2016u << 1u << true;
    QTest::newRow("major alone") << QStringLiteral("2016") << 2017u << 0u << false;
    QTest::newRow("three parts") << QStringLiteral("2016.1.5") << 2017u << 0u << false;
    QTest::newRow("empty") << QString() << 2017u << 0u << false;
    QTest::newRow("empty parts dropped") << QStringLiteral(".2016..1.") << 2016u << 1u << true;
    QTest::newRow("not a number counts 0") << QStringLiteral("abc.3") << 0u << 3u << true;
}

void LaunchTest::hostVersionIsParsed()
{
    QFETCH(QString, value);
    QFETCH(uint, major);
    QFETCH(uint, minor);
    QFETCH(bool, fromSettings);
    const HostVersion version = ParseHostVersion(value);
    QCOMPARE(version.major, major);
    QCOMPARE(version.minor, minor);
    QCOMPARE(version.fromSettings, fromSettings);
}

QTEST_GUILESS_MAIN(LaunchTest)
#include "tst_launch.moc"
