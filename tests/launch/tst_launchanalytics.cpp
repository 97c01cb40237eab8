// SPDX-License-Identifier: MIT
// The usage report of a launch: sent once the host has started, with the launch point's label;
// a refused or failed launch reports nothing. Runs from a folder of its own with the analytics
// library beside it.

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include "execution/Analytics.h"

#include <VmWorkflowCore/WorkflowManager.h>

#include <OstrelAdapter/ApplicationInfo.h>
#include <OstrelAdapter/ApplicationManager.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::ReadFile;
using VmWorkflowTest::Wide;
using VmWorkflowTest::WriteFile;

namespace {

const QString kRecorder = QStringLiteral(VMWF_LAUNCH_RECORDER);

// Each reported waypoint: its name and its first state's attributes, name to value.
QList<QPair<QString, QVariantMap>> Reports(const QString& log)
{
    QList<QPair<QString, QVariantMap>> reports;
    for (const QByteArray& text : ReadFile(log).split('\n'))
    {
        if (text.isEmpty())
            continue;
        const QJsonObject object = QJsonDocument::fromJson(text).object();
        QVariantMap attributes;
        const QJsonObject state = object.value(QStringLiteral("states")).toArray().at(0).toObject();
        for (const QJsonValue& attribute : state.value(QStringLiteral("attributes")).toArray())
            attributes.insert(attribute.toObject().value(QStringLiteral("name")).toString(),
                              attribute.toObject().value(QStringLiteral("value")).toVariant());
        reports.append(qMakePair(object.value(QStringLiteral("waypoint")).toString(), attributes));
    }
    return reports;
}

class VetoContext : public HostApplicationContext
{
public:
    bool CanExecuteWorkflow(Workflow*) override { return allow; }
    void AddLaunchArguments(Workflow*, WorkflowArguments*) override {}
    int GetCurrentProductId(WideChar*, int) override { return 0; }
    bool BeforeExecuteWorkflow(Workflow*) override { return true; }
    bool allow = true;
};

} // namespace

class LaunchAnalyticsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void launchReportsItsLaunchPoint_data();
    void launchReportsItsLaunchPoint();
    void refusedLaunchReportsNothing();

private:
    void UseHost(const QString& executable);

    VmWorkflowTest::TestEnvironment m_environment;
    QTemporaryDir m_files;
    QString m_log;
    VetoContext m_context;
};

void LaunchAnalyticsTest::initTestCase()
{
    QVERIFY(m_environment.Setup());
    QVERIFY(m_files.isValid());
    QVERIFY(QDir(m_files.path()).mkpath(QStringLiteral("tmp")));
    qputenv("TMPDIR", QFile::encodeName(m_files.path() + QStringLiteral("/tmp")));
    m_log = m_files.filePath(QStringLiteral("kv7.log"));
    qputenv("KV7_LOG_FILE", QFile::encodeName(m_log));
    qputenv("VMWF_LAUNCH_RECORD", QFile::encodeName(m_files.filePath(QStringLiteral("record.txt"))));
    QVERIFY(WriteFile(m_files.path() + QStringLiteral("/workflows/a.workflow"),
                      VmWorkflowTest::WorkflowDocument(VmWorkflowTest::WorkflowElement(
                          R"(Id="Id_Reported" Name="Reported" TemplateId="Id_Origin")"))));
    QVERIFY(WorkflowManager::Initialize());
    WorkflowManager::GetInstance()->SetWorkflowSearchPaths(
        Wide(m_files.path() + QStringLiteral("/workflows")));
    WorkflowManager::GetInstance()->SetHostApplicationContext(&m_context);
    AnalyticsTesting::SetGateOpen(true);
}

void LaunchAnalyticsTest::cleanupTestCase()
{
    AnalyticsTesting::SetGateOpen(false);
    WorkflowManager::GetInstance()->SetHostApplicationContext(nullptr);
    WorkflowManager::Uninitialize();
}

void LaunchAnalyticsTest::UseHost(const QString& executable)
{
    const QString manifests = m_files.path() + QStringLiteral("/applications");
    QVERIFY(WriteFile(manifests + QStringLiteral("/VmWorkflowHost.xml"),
                      "<Application Id=\"Id_VmWorkflowHost\" Name=\"VmWorkflowHost\" Version=\"2017.0\" "
                      "Executable=\"" +
                          QFile::encodeName(executable) + "\" InfoId=\"2017\"/>"));
    qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(manifests));
    QVERIFY(QTest::qWaitFor(
        [&] {
            const auto hosts =
                Velmora::OstrelAdapter::ApplicationManager::GetInstance()->GetInstalledApplications(
                    QStringLiteral("Id_VmWorkflowHost"), QString());
            return !hosts.isEmpty() && hosts.first().GetExecutable() == executable;
        },
        10000));
}

void LaunchAnalyticsTest::launchReportsItsLaunchPoint_data()
{
    QTest::addColumn<int>("launchPoint");
    QTest::addColumn<QString>("label");
    QTest::newRow("ribbon") << 3 << QStringLiteral("Ribbon");
    QTest::newRow("seven") << 7 << QStringLiteral("Unknown");
}

void LaunchAnalyticsTest::launchReportsItsLaunchPoint()
{
    QFETCH(int, launchPoint);
    QFETCH(QString, label);
    UseHost(kRecorder);
    QFile::remove(m_log);
    Workflow* workflow =
        WorkflowManager::GetInstance()->GetWorkflow(Wide(QStringLiteral("Id_Reported")), Wide(QString()));
    QVERIFY(workflow);
    QVERIFY(WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, WorkflowLaunchPoint(launchPoint)));
    const auto reports = Reports(m_log);
    QCOMPARE(reports.size(), 1);
    QCOMPARE(reports.first().first, QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION"));
    const QVariantMap& attributes = reports.first().second;
    QCOMPARE(attributes.value(QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ACCESSPOINT")).toString(),
             label);
    QCOMPARE(attributes.value(QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ID")).toString(),
             QStringLiteral("Id_Reported"));
}

void LaunchAnalyticsTest::refusedLaunchReportsNothing()
{
    UseHost(kRecorder);
    QFile::remove(m_log);
    Workflow* workflow =
        WorkflowManager::GetInstance()->GetWorkflow(Wide(QStringLiteral("Id_Reported")), Wide(QString()));
    QVERIFY(workflow);
    m_context.allow = false;
    QVERIFY(!WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, Ribbon));
    m_context.allow = true;
    // A host that cannot be started is no execution either.
    UseHost(m_files.path() + QStringLiteral("/no-such-host"));
    QVERIFY(!WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, Ribbon));
    QVERIFY(!QFile::exists(m_log));
}

QTEST_GUILESS_MAIN(LaunchAnalyticsTest)
#include "tst_launchanalytics.moc"
