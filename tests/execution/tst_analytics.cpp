// SPDX-License-Identifier: MIT
// Usage reports through the real analytics library: the lines it writes carry exactly the names,
// order and values of each report; with the gate closed nothing is loaded and nothing written.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "execution/Analytics.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <limits>
#include <memory>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

bool Kv7IsMapped()
{
    return ReadFile(QStringLiteral("/proc/self/maps")).contains("libKv7");
}

// One attribute as written: its name and its value (text or bool).
using Attributes = QList<QPair<QString, QJsonValue>>;

struct Line
{
    QString waypoint;
    QString state;
    int stateCount = 0;
    Attributes attributes;
};

QList<Line> ReadLines(const QString& path)
{
    QList<Line> lines;
    for (const QByteArray& text : ReadFile(path).split('\n'))
    {
        if (text.isEmpty())
            continue;
        const QJsonObject object = QJsonDocument::fromJson(text).object();
        Line line;
        line.waypoint = object.value(QStringLiteral("waypoint")).toString();
        const QJsonArray states = object.value(QStringLiteral("states")).toArray();
        line.stateCount = int(states.size());
        const QJsonObject state = states.at(0).toObject();
        line.state = state.value(QStringLiteral("name")).toString();
        for (const QJsonValue& attribute : state.value(QStringLiteral("attributes")).toArray())
            line.attributes.append(qMakePair(attribute.toObject().value(QStringLiteral("name")).toString(),
                                             attribute.toObject().value(QStringLiteral("value"))));
        lines.append(line);
    }
    return lines;
}

QByteArray TemplateDocument()
{
    return WorkflowDocument(WorkflowElement(
        R"(Id="Id_Tmpl" TemplateId="Id_Origin" Name="Tmpl" IsTemplate="True" Description="d")"));
}

} // namespace

class tst_Analytics : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<Workflow> LoadTemplate()
    {
        const QString path = m_files.filePath(QStringLiteral("templates/Tmpl.workflow"));
        if (!WriteFile(path, TemplateDocument()))
            return nullptr;
        auto workflow = std::make_unique<Workflow>();
        if (!workflow->Load(Wide(path), Wide(QStringLiteral("Id_Tmpl"))))
            return nullptr;
        return workflow;
    }

    QList<Line> Lines() { return ReadLines(m_log); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_environment.Setup());
        QVERIFY(m_files.isValid());
        m_log = m_files.filePath(QStringLiteral("kv7.log"));
        qputenv("KV7_LOG_FILE", QFile::encodeName(m_log));
        QVERIFY(WorkflowManager::Initialize());
    }

    void init() { QFile::remove(m_log); }

    void cleanupTestCase()
    {
        AnalyticsTesting::SetGateOpen(false);
        QVERIFY(WorkflowManager::Uninitialize());
    }

    // Runs first: once the gate has been opened the library stays loaded.
    void closedGateLoadsAndWritesNothing()
    {
        QVERIFY(!Kv7IsMapped());
        std::unique_ptr<Workflow> workflow = LoadTemplate();
        QVERIFY(workflow);
        for (int launchPoint = 0; launchPoint < 5; ++launchPoint)
            ReportWorkflowExecution(workflow.get(), launchPoint);
        QVERIFY(workflow->Save(Wide(QStringLiteral("Created"))));
        QVERIFY(workflow->Save());
        ReportWorkflowCreation(QStringLiteral("Id_Origin"), true);
        ReportWorkflowModification(QStringLiteral("Id_X"), QStringLiteral("Id_Origin"));

        QVERIFY(!QFile::exists(m_log));
        QVERIFY(!AnalyticsTesting::IsBound());
        QVERIFY(!Kv7IsMapped());
    }

    void executionCarriesLaunchPointLabel_data()
    {
        QTest::addColumn<int>("launchPoint");
        QTest::addColumn<QString>("label");
        QTest::newRow("application menu") << 0 << QStringLiteral("Application Menu");
        QTest::newRow("workflow browser") << 1 << QStringLiteral("Workflow Browser");
        QTest::newRow("workflow editor") << 2 << QStringLiteral("Workflow Editor");
        QTest::newRow("ribbon") << 3 << QStringLiteral("Ribbon");
        QTest::newRow("seven") << 7 << QStringLiteral("Unknown");
        QTest::newRow("negative") << -1 << QStringLiteral("Unknown");
    }

    void executionCarriesLaunchPointLabel()
    {
        QFETCH(int, launchPoint);
        QFETCH(QString, label);
        AnalyticsTesting::SetGateOpen(true);
        std::unique_ptr<Workflow> workflow = LoadTemplate();
        QVERIFY(workflow);
        ImpOf(workflow.get())->Fields().IsModified = true;
        ReportWorkflowExecution(workflow.get(), launchPoint);

        const QList<Line> lines = Lines();
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines.at(0).waypoint, QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION"));
        QCOMPARE(lines.at(0).stateCount, 1);
        QCOMPARE(lines.at(0).state, QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_STATE"));
        const Attributes expected{
            {QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ID"), QJsonValue(QStringLiteral("Id_Tmpl"))},
            {QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_TEMPLATEID"),
             QJsonValue(QStringLiteral("Id_Origin"))},
            {QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ISTEMPLATE"), QJsonValue(true)},
            {QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ISMODIFIED"), QJsonValue(true)},
            {QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ACCESSPOINT"), QJsonValue(label)}};
        QCOMPARE(lines.at(0).attributes, expected);
        QVERIFY(AnalyticsTesting::IsBound());
        QVERIFY(Kv7IsMapped());
    }

    void executionOfSavedWorkflowReportsItsFlags()
    {
        AnalyticsTesting::SetGateOpen(true);
        std::unique_ptr<Workflow> workflow = LoadTemplate();
        QVERIFY(workflow);
        ImpOf(workflow.get())->Fields().IsTemplate = false;
        ImpOf(workflow.get())->Fields().IsModified = false;
        ReportWorkflowExecution(workflow.get(), 1);
        const QList<Line> lines = Lines();
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines.at(0).attributes.at(2).second, QJsonValue(false));
        QCOMPARE(lines.at(0).attributes.at(3).second, QJsonValue(false));
    }

    void creationAndModificationAreReportedBySaves()
    {
        AnalyticsTesting::SetGateOpen(true);
        std::unique_ptr<Workflow> workflow = LoadTemplate();
        QVERIFY(workflow);
        ImpOf(workflow.get())->Fields().IsModified = true;
        QVERIFY(workflow->Save(Wide(QStringLiteral("My Flow"))));
        const QString newId = ImpOf(workflow.get())->Fields().Id;
        QVERIFY(newId.startsWith(QStringLiteral("Id_MyFlow_")));
        QVERIFY(workflow->Save());

        const QList<Line> lines = Lines();
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines.at(0).waypoint, QStringLiteral("COMMON.KELDO.WORKFLOWCREATION"));
        QCOMPARE(lines.at(0).state, QStringLiteral("COMMON.KELDO.WORKFLOWCREATION_STATE"));
        const Attributes created{
            {QStringLiteral("COMMON.KELDO.WORKFLOWCREATION_TEMPLATEID"),
             QJsonValue(QStringLiteral("Id_Origin"))},
            {QStringLiteral("COMMON.KELDO.WORKFLOWCREATION_ISMODIFIED"), QJsonValue(true)}};
        QCOMPARE(lines.at(0).attributes, created);
        QCOMPARE(lines.at(1).waypoint, QStringLiteral("COMMON.KELDO.WORKFLOWMODIFICATION"));
        QCOMPARE(lines.at(1).state, QStringLiteral("COMMON.KELDO.WORKFLOWMODIFICATION_STATE"));
        const Attributes modified{{QStringLiteral("COMMON.KELDO.WORKFLOWMODIFICATION_ID"), QJsonValue(newId)},
                                  {QStringLiteral("COMMON.KELDO.WORKFLOWMODIFICATION_TEMPLATEID"),
                                   QJsonValue(QStringLiteral("Id_Origin"))}};
        QCOMPARE(lines.at(1).attributes, modified);
    }

    void creationOfUnmodifiedWorkflowReportsFalse()
    {
        AnalyticsTesting::SetGateOpen(true);
        std::unique_ptr<Workflow> workflow = LoadTemplate();
        QVERIFY(workflow);
        QVERIFY(workflow->Save(Wide(QStringLiteral("Plain"))));
        const QList<Line> lines = Lines();
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines.at(0).attributes.at(1).second, QJsonValue(false));
    }

    void failedSavesReportNothing()
    {
        AnalyticsTesting::SetGateOpen(true);
        std::unique_ptr<Workflow> workflow = LoadTemplate();
        QVERIFY(workflow);
        // A template is never saved in place.
        QVERIFY(!workflow->Save());
        QVERIFY(!QFile::exists(m_log));
    }

    void emptyIdIsSentAsEmptyText()
    {
        AnalyticsTesting::SetGateOpen(true);
        Workflow workflow;
        ReportWorkflowExecution(&workflow, 0);
        ReportWorkflowModification(QString(), QString());
        const QList<Line> lines = Lines();
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines.at(0).attributes.size(), 5);
        QCOMPARE(lines.at(0).attributes.at(0),
                 qMakePair(QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ID"), QJsonValue(QString())));
        QCOMPARE(lines.at(1).attributes.size(), 2);
        QCOMPARE(lines.at(1).attributes.at(0),
                 qMakePair(QStringLiteral("COMMON.KELDO.WORKFLOWMODIFICATION_ID"), QJsonValue(QString())));
    }

    void closingTheGateAgainStopsReports()
    {
        AnalyticsTesting::SetGateOpen(false);
        Workflow workflow;
        ReportWorkflowExecution(&workflow, 0);
        QVERIFY(!QFile::exists(m_log));
    }

    void bufferSizeSaturatesInsteadOfWrapping()
    {
        constexpr std::size_t kLargest = std::numeric_limits<std::size_t>::max();
        constexpr std::size_t kUnit = sizeof(WideChar);
        QCOMPARE(WideBufferBytes(0), kUnit);
        QCOMPARE(WideBufferBytes(5), 6 * kUnit);
        QCOMPARE(WideBufferBytes(kLargest), kLargest);
        QCOMPARE(WideBufferBytes(kLargest / kUnit), kLargest);
        QCOMPARE(WideBufferBytes(kLargest / kUnit - 1), kLargest);
        QCOMPARE(WideBufferBytes(kLargest / kUnit - 2), (kLargest / kUnit - 1) * kUnit);
    }

private:
    TestEnvironment m_environment;
    QTemporaryDir m_files;
    QString m_log;
};

QTEST_GUILESS_MAIN(tst_Analytics)
#include "tst_analytics.moc"
