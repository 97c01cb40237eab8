// SPDX-License-Identifier: MIT
// One run of the registry as the exported ExecutingWorkflow shows it.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "execution/ExecutingWorkflowRecord.h"
#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "TestEnvironment.h"
#include "WideText.h"

#include <QtTest>

#include <array>

using namespace Velmora::WorkflowCore;

namespace {
std::unique_ptr<ExecutingWorkflow> MakeRun(QList<int> applications, int status = 0)
{
    auto* record = new ExecutingWorkflowRecord;
    record->WorkflowId = QStringLiteral("Id_Run");
    record->HostProcessId = 100;
    record->LauncherProcessId = 200;
    record->TargetProductProcessId = 300;
    record->ExecutingApplications = applications;
    record->ExitStatus = status;
    record->ErrorMessage = QStringLiteral("went wrong");
    return std::unique_ptr<ExecutingWorkflow>(FacadeAccess::MakeExecutingWorkflow(record));
}
} // namespace

class tst_ExecutingWorkflow : public QObject
{
    Q_OBJECT
private:
    VmWorkflowTest::TestEnvironment m_env;

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }

    void processIdsAreReported()
    {
        auto run = MakeRun({1, 2});
        QCOMPARE(run->GetHostProcessId(), 100);
        QCOMPARE(run->GetLauncherProcessId(), 200);
        QCOMPARE(run->GetTargetProductProcessId(), 300);
        QCOMPARE(run->GetExecutingApplicationsCount(), 2);
    }

    void applicationsWithLargerBufferReturnCount()
    {
        auto run = MakeRun({11, 22, 33});
        std::array<int, 8> buffer;
        buffer.fill(-1);
        QCOMPARE(run->GetExecutingApplications(buffer.data(), 8), 3);
        QCOMPARE(buffer[0], 11);
        QCOMPARE(buffer[1], 22);
        QCOMPARE(buffer[2], 33);
        QCOMPARE(buffer[3], -1);
    }

    void applicationsWithSmallerBufferCopyFirstOnes()
    {
        auto run = MakeRun({11, 22, 33});
        std::array<int, 3> buffer;
        buffer.fill(-1);
        QCOMPARE(run->GetExecutingApplications(buffer.data(), 2), 2);
        QCOMPARE(buffer[0], 11);
        QCOMPARE(buffer[1], 22);
        QCOMPARE(buffer[2], -1);
    }

    void applicationsWithNullBufferOrBadSizeReturnZero()
    {
        auto run = MakeRun({11, 22, 33});
        QCOMPARE(run->GetExecutingApplications(nullptr, 10), 0);
        int one = -1;
        QCOMPARE(run->GetExecutingApplications(&one, 0), 0);
        QCOMPARE(run->GetExecutingApplications(&one, -4), 0);
        QCOMPARE(one, -1);
    }

    void finishedReadsTheExitStatus_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("finished");
        QTest::newRow("status 0 is not finished") << 0 << false;
        QTest::newRow("status 1") << 1 << true;
        QTest::newRow("negative status") << -2 << true;
    }
    void finishedReadsTheExitStatus()
    {
        QFETCH(int, status);
        QFETCH(bool, finished);
        auto run = MakeRun({}, status);
        QCOMPARE(run->IsFinished(), finished);
        QCOMPARE(run->GetErrorStatus(), status);
    }

    void errorMessageFollowsTextOutRule()
    {
        auto run = MakeRun({});
        QCOMPARE(run->GetErrorMessage(nullptr, 0), 10);
        QCOMPARE(VmWorkflowTest::ReadText([&](WideChar* b, int s) { return run->GetErrorMessage(b, s); }),
                 QStringLiteral("went wrong"));
    }

    void workflowIsLookedUpInTheCatalogue()
    {
        QVERIFY(WorkflowManager::Initialize());
        ImpOf(WorkflowManager::GetInstance())->EnsureCatalogueLoaded();
        auto* workflow = new Workflow;
        ImpOf(workflow)->Fields().Id = QStringLiteral("id_run");
        WorkflowPrivate::AddWorkflow(workflow);
        auto run = MakeRun({});
        QCOMPARE(run->GetWorkflow(), workflow);
        RecordOf(run.get())->WorkflowId = QStringLiteral("unknown");
        QVERIFY(!run->GetWorkflow());
        QVERIFY(WorkflowManager::Uninitialize());
    }
};

QTEST_GUILESS_MAIN(tst_ExecutingWorkflow)
#include "tst_executingworkflow.moc"
