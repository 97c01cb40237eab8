// SPDX-License-Identifier: MIT
// The singleton's life through the exported interface only, as an application sees it.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include <OstrelAdapter/ApplicationManager.h>

#include "TestEnvironment.h"
#include "WideText.h"

#include <QtTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using Velmora::OstrelAdapter::ApplicationManager;
using VmWorkflowTest::ReadText;
using VmWorkflowTest::Wide;

namespace {

class Context : public HostApplicationContext
{
public:
    bool CanExecuteWorkflow(Workflow*) override { return true; }
    void AddLaunchArguments(Workflow*, WorkflowArguments*) override {}
    int GetCurrentProductId(WideChar*, int) override { return 0; }
    bool BeforeExecuteWorkflow(Workflow*) override { return true; }
};

QString SearchPaths(WorkflowManager* manager)
{
    return ReadText([&](WideChar* b, int s) { return manager->GetWorkflowSearchPaths(b, s); });
}

} // namespace

class tst_ManagerLifecycle : public QObject
{
    Q_OBJECT
private:
    VmWorkflowTest::TestEnvironment m_env;

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }

    void noInstanceBeforeInitialize() { QVERIFY(!WorkflowManager::GetInstance()); }

    void uninitializeWithoutInitializeLeavesHubAlone()
    {
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("SomeoneElse")));
        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(ApplicationManager::GetInstance());
        QCOMPARE(ApplicationManager::GetInstance()->GetApplicationName(), QStringLiteral("SomeoneElse"));
        ApplicationManager::Uninitialize();
    }

    void initializeStartsTheHubAsWorkflowCore()
    {
        QVERIFY(WorkflowManager::Initialize());
        QVERIFY(ApplicationManager::GetInstance());
        QCOMPARE(ApplicationManager::GetInstance()->GetApplicationName(), QStringLiteral("VmWorkflowCore"));
        QVERIFY(WorkflowManager::GetInstance()->GetNotificationManager());
        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(!ApplicationManager::GetInstance());
    }

    void initializeTwiceThenUninitializeOnceEndsTheManager()
    {
        QVERIFY(WorkflowManager::Initialize());
        WorkflowManager* first = WorkflowManager::GetInstance();
        QVERIFY(first);
        QVERIFY(WorkflowManager::Initialize());
        QCOMPARE(WorkflowManager::GetInstance(), first);
        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(!WorkflowManager::GetInstance());
        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(!WorkflowManager::GetInstance());
    }

    void initializeAfterUninitializeStartsFresh()
    {
        QVERIFY(WorkflowManager::Initialize());
        WorkflowManager::GetInstance()->SetWorkflowPluginSearchPaths(Wide(QStringLiteral("/plugins")));
        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(WorkflowManager::Initialize());
        QCOMPARE(WorkflowManager::GetInstance()->GetWorkflowPluginSearchPaths(nullptr, 0), 0);
        QVERIFY(WorkflowManager::Uninitialize());
    }

    void configurationIsStoredAndReadBack()
    {
        QVERIFY(WorkflowManager::Initialize());
        WorkflowManager* manager = WorkflowManager::GetInstance();
        QCOMPARE(SearchPaths(manager), QString());
        manager->SetWorkflowSearchPaths(Wide(QStringLiteral("/a;/b")));
        QCOMPARE(SearchPaths(manager), QStringLiteral("/a;/b"));
        manager->SetWorkflowPluginSearchPaths(Wide(QStringLiteral("/p1;/p2")));
        QCOMPARE(ReadText([&](WideChar* b, int s) { return manager->GetWorkflowPluginSearchPaths(b, s); }),
                 QStringLiteral("/p1;/p2"));
        manager->SetCurrentLocale(Wide(QStringLiteral("de-DE")));
        QCOMPARE(ReadText([&](WideChar* b, int s) { return manager->GetCurrentLocale(b, s); }),
                 QStringLiteral("de-DE"));
        QVERIFY(!manager->GetHostApplicationContext());
        Context context;
        manager->SetHostApplicationContext(&context);
        QCOMPARE(manager->GetHostApplicationContext(), &context);
        manager->SetHostApplicationContext(nullptr);
        QVERIFY(!manager->GetHostApplicationContext());
        QVERIFY(WorkflowManager::Uninitialize());
    }

    void versionInfoIs2015Point11()
    {
        QVERIFY(WorkflowManager::Initialize());
        int major = 0;
        int minor = 0;
        WorkflowManager::GetInstance()->GetWorkflowVersionInfo(major, minor);
        QCOMPARE(major, 2015);
        QCOMPARE(minor, 11);
        QVERIFY(WorkflowManager::Uninitialize());
    }

    void versionInfoIgnoresMachineSettings()
    {
        // A machine settings store that names another version changes nothing.
        const QString folder = m_env.ConfigDirs() + QStringLiteral("/Velmora/Workflow");
        QVERIFY(QDir().mkpath(folder));
        QFile conf(folder + QStringLiteral("/2015.0.conf"));
        QVERIFY(conf.open(QIODevice::WriteOnly));
        conf.write("[General]\nWorkflowHostVersion=2017.1\nMajor=2020\nMinor=3\n");
        conf.close();
        QVERIFY(WorkflowManager::Initialize());
        int major = 0;
        int minor = 0;
        WorkflowManager::GetInstance()->GetWorkflowVersionInfo(major, minor);
        QCOMPARE(major, 2015);
        QCOMPARE(minor, 11);
        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(conf.remove());
    }

    void uninitializeDestroysCatalogueWorkflows()
    {
        QVERIFY(WorkflowManager::Initialize());
        for (int i = 0; i < 20; ++i)
        {
            auto* workflow = new Workflow;
            workflow->SetName(Wide(QStringLiteral("w%1").arg(i)));
            WorkflowPrivate::AddWorkflow(workflow);
        }
        QVERIFY(WorkflowPrivate::GetWorkflow(19));
        // The leak checker proves the catalogue's workflows go with the manager.
        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(!WorkflowManager::GetInstance());
    }
};

QTEST_GUILESS_MAIN(tst_ManagerLifecycle)
#include "tst_managerlifecycle.moc"
