// SPDX-License-Identifier: MIT
// The notification manager across real processes through the real hub: a helper host (the same
// program once named like the host application and once not) and this test, which links to it
// as a launcher would.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/WorkflowManagerImp.h"
#include "notification/OstrelMessageHandler.h"
#include "notification/WorkflowNotificationManagerImp.h"

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/ApplicationMessage.h>
#include <OstrelAdapter/ApplicationMessageHandler.h>

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"
#include "util/FacadeAccess.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using namespace Velmora::OstrelAdapter;
using namespace VmWorkflowTest;

namespace {

const QString kWorkflowId = QStringLiteral("Id_NotifiedFlow");

// Records every hub message reaching this process, beside the library's own handler.
class Recorder : public QObject, public ApplicationMessageHandler
{
    Q_OBJECT
public:
    void MessageReceived(ApplicationMessage* message) override
    {
        names.append(message->GetName());
        Q_EMIT Received(message->GetName(), message->GetData());
    }
    void ApplicationLinkStarted(Application*) override {}
    int Count(const QString& name) const { return int(names.count(name)); }

    QStringList names;

Q_SIGNALS:
    void Received(const QString& name, const QVariantMap& data);
};

// Counts how often the library tells it of the link it waits for.
class CountingListener : public LinkStateListener
{
public:
    explicit CountingListener(int processId) : m_processId(processId) {}
    void OnLinkStarted() override { ++told; }
    int GetProcessId() override { return m_processId; }
    int told = 0;

private:
    int m_processId;
};

} // namespace

class tst_NotificationManager : public QObject
{
    Q_OBJECT

private:
    WorkflowManager* Manager() { return WorkflowManager::GetInstance(); }

    // Starts a helper, links to it and waits for its report of the link; the report's "Told" is
    // the listeners the library told, in order.
    bool StartHelper(const QString& program, const QStringList& arguments, QStringList* told)
    {
        m_helper = std::make_unique<QProcess>();
        m_helper->setProcessChannelMode(QProcess::ForwardedChannels);
        m_helper->start(program, arguments);
        if (!m_helper->waitForStarted(20000))
            return false;
        QSignalSpy seen(m_recorder.get(), &Recorder::Received);
        m_application = ApplicationManager::GetInstance()->GetApplication(m_helper->processId());
        if (!m_application || m_application->Connect(20000) != Application::Linked)
            return false;
        for (;;)
        {
            for (const QList<QVariant>& arguments : std::as_const(seen))
            {
                if (arguments.at(0).toString() == QLatin1String("HostLinkSeenMsg"))
                {
                    *told = arguments.at(1).toMap().value(QStringLiteral("Told")).toStringList();
                    return true;
                }
            }
            seen.clear();
            if (!seen.wait(20000))
                return false;
        }
    }

    // Sends one command to the helper and waits for its answer.
    QVariantMap Command(const QString& name, const QVariantMap& data = QVariantMap())
    {
        QSignalSpy received(m_recorder.get(), &Recorder::Received);
        ApplicationMessage command(name, data);
        if (!m_application->Send(&command))
            return QVariantMap();
        for (;;)
        {
            for (const QList<QVariant>& arguments : std::as_const(received))
            {
                const QVariantMap answer = arguments.at(1).toMap();
                if (arguments.at(0).toString() == QLatin1String("HostDoneMsg") &&
                    answer.value(QStringLiteral("Command")).toString() == name)
                    return answer;
            }
            received.clear();
            if (!received.wait(20000))
                return QVariantMap();
        }
    }

    void StopHelper()
    {
        if (!m_helper)
            return;
        if (m_application && m_application->IsConnected())
            Command(QStringLiteral("HostQuitMsg"));
        if (!m_helper->waitForFinished(20000))
            m_helper->kill();
        m_helper->waitForFinished(5000);
        m_helper.reset();
        m_application = nullptr;
    }

    QString WriteWorkflow(const QString& fileName, const QString& name)
    {
        const QString path = m_files->path() + QLatin1Char('/') + fileName;
        const QByteArray attributes =
            QStringLiteral(R"(Id="%1" Name="%2" IsTemplate="True")").arg(kWorkflowId, name).toUtf8();
        return WriteFile(path, WorkflowDocument(WorkflowElement(attributes))) ? path : QString();
    }

    Workflow* CatalogueWorkflow() { return Manager()->GetWorkflow(Wide(kWorkflowId), nullptr); }

    QString NameOf(Workflow* workflow)
    {
        return ReadText([workflow](WideChar* buffer, int size) { return workflow->GetName(buffer, size); });
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_environment.Setup());
        QVERIFY(WorkflowManager::Initialize());
        QVERIFY(ApplicationManager::GetInstance());
        m_recorder = std::make_unique<Recorder>();
        ApplicationManager::GetInstance()->AddMessageHandler(m_recorder.get());
    }

    void init()
    {
        m_files = std::make_unique<QTemporaryDir>();
        QVERIFY(m_files->isValid());
        m_catalogueFile =
            WriteWorkflow(QStringLiteral("catalogue/Notified.workflow"), QStringLiteral("Before"));
        QVERIFY(!m_catalogueFile.isEmpty());
        Manager()->SetWorkflowSearchPaths(Wide(m_files->path() + QStringLiteral("/catalogue")));
        QVERIFY(CatalogueWorkflow());
        QCOMPARE(NameOf(CatalogueWorkflow()), QStringLiteral("Before"));
        m_recorder->names.clear();
    }

    void cleanup()
    {
        StopHelper();
        Manager()->SetWorkflowSearchPaths(Wide(QString()));
        m_files.reset();
    }

    void cleanupTestCase()
    {
        ApplicationManager::GetInstance()->RemoveMessageHandler(m_recorder.get());
        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(!ApplicationManager::GetInstance());
    }

    void modifiedMessageRereadsCatalogueWorkflow()
    {
        QStringList told;
        QVERIFY(StartHelper(QStringLiteral(VMWF_NOTIFY_HOST),
                            {QString::number(QCoreApplication::applicationPid())}, &told));
        QCOMPARE(told, QStringList{QStringLiteral("0")});

        const QString changed =
            WriteWorkflow(QStringLiteral("changes/Changed.workflow"), QStringLiteral("After"));
        QVERIFY(!changed.isEmpty());
        // The catalogue finds the workflow by its id in any letter case.
        const QVariantMap answer =
            Command(QStringLiteral("HostModifyMsg"), {{QStringLiteral("WorkflowId"), kWorkflowId.toUpper()},
                                                      {QStringLiteral("WorkflowSourceFile"), changed}});
        QCOMPARE(answer.value(QStringLiteral("Result")), QVariant(true));
        QCOMPARE(m_recorder->Count(QStringLiteral("WorkflowModifiedMsg")), 1);
        QCOMPARE(NameOf(CatalogueWorkflow()), QStringLiteral("After"));
        const QString sourceFile = ReadText(
            [this](WideChar* buffer, int size) { return CatalogueWorkflow()->GetSourceFile(buffer, size); });
        QCOMPARE(sourceFile, QDir::cleanPath(changed));
    }

    void modifiedMessageCarriesBothTextsUnchanged()
    {
        QStringList told;
        QVERIFY(StartHelper(QStringLiteral(VMWF_NOTIFY_HOST),
                            {QString::number(QCoreApplication::applicationPid())}, &told));
        QSignalSpy received(m_recorder.get(), &Recorder::Received);
        const QString id = QStringLiteral("Id_Elsewhere ä");
        const QString file = QStringLiteral("/no/such/./folder//x.workflow");
        Command(QStringLiteral("HostModifyMsg"),
                {{QStringLiteral("WorkflowId"), id}, {QStringLiteral("WorkflowSourceFile"), file}});
        QCOMPARE(received.size(), 2);
        QCOMPARE(received.at(0).at(0).toString(), QStringLiteral("WorkflowModifiedMsg"));
        const QVariantMap data = received.at(0).at(1).toMap();
        QCOMPARE(data.keys(),
                 (QStringList{QStringLiteral("WorkflowId"), QStringLiteral("WorkflowSourceFile")}));
        QCOMPARE(data.value(QStringLiteral("WorkflowId")).toString(), id);
        QCOMPARE(data.value(QStringLiteral("WorkflowSourceFile")).toString(), file);
        // A modification of a workflow the catalogue does not hold leaves the catalogue alone.
        QCOMPARE(NameOf(CatalogueWorkflow()), QStringLiteral("Before"));
    }

    void linkFromUnexpectedProcessIsNotRecorded()
    {
        QStringList told;
        const int otherProcess = int(QCoreApplication::applicationPid()) + 100000;
        QVERIFY(StartHelper(QStringLiteral(VMWF_NOTIFY_HOST), {QString::number(otherProcess)}, &told));
        QVERIFY(told.isEmpty());

        const QString changed =
            WriteWorkflow(QStringLiteral("changes/Changed.workflow"), QStringLiteral("After"));
        const QVariantMap answer =
            Command(QStringLiteral("HostModifyMsg"), {{QStringLiteral("WorkflowId"), kWorkflowId},
                                                      {QStringLiteral("WorkflowSourceFile"), changed}});
        QCOMPARE(answer.value(QStringLiteral("Result")), QVariant(true));
        QCOMPARE(m_recorder->Count(QStringLiteral("WorkflowModifiedMsg")), 0);
        QCOMPARE(NameOf(CatalogueWorkflow()), QStringLiteral("Before"));
    }

    void everyMatchingListenerIsToldOnceInOrder()
    {
        // Listeners 0 and 2 wait for this process, 1 for another; a null entry sits between them
        // and listener 2 is added a second time.
        const QString self = QString::number(QCoreApplication::applicationPid());
        const QString other = QString::number(QCoreApplication::applicationPid() + 100000);
        QStringList told;
        QVERIFY(StartHelper(QStringLiteral(VMWF_NOTIFY_HOST),
                            {self, other, QStringLiteral("null"), self, QStringLiteral("again")}, &told));
        QCOMPARE(told, (QStringList{QStringLiteral("0"), QStringLiteral("2")}));

        // Two listeners matched, but the application is recorded once: one message arrives.
        const QString changed =
            WriteWorkflow(QStringLiteral("changes/Changed.workflow"), QStringLiteral("After"));
        Command(QStringLiteral("HostModifyMsg"), {{QStringLiteral("WorkflowId"), kWorkflowId},
                                                  {QStringLiteral("WorkflowSourceFile"), changed}});
        QCOMPARE(m_recorder->Count(QStringLiteral("WorkflowModifiedMsg")), 1);
        QCOMPARE(NameOf(CatalogueWorkflow()), QStringLiteral("After"));
    }

    void processNotNamedHostNeitherRecordsLinksNorSends()
    {
        // The same program under another name: the listener for this process is never told and
        // nothing is sent, though the link is up.
        QStringList told;
        QVERIFY(StartHelper(QStringLiteral(VMWF_NOTIFY_PEER),
                            {QString::number(QCoreApplication::applicationPid())}, &told));
        QVERIFY(told.isEmpty());
        const QString changed =
            WriteWorkflow(QStringLiteral("changes/Changed.workflow"), QStringLiteral("After"));
        const QVariantMap answer =
            Command(QStringLiteral("HostModifyMsg"), {{QStringLiteral("WorkflowId"), kWorkflowId},
                                                      {QStringLiteral("WorkflowSourceFile"), changed}});
        QCOMPARE(answer.value(QStringLiteral("Result")), QVariant(true));
        QCOMPARE(m_recorder->Count(QStringLiteral("WorkflowModifiedMsg")), 0);
        QCOMPARE(NameOf(CatalogueWorkflow()), QStringLiteral("Before"));
    }

    void thisProcessSendsNothingButReceives()
    {
        QVERIFY(!ImpOf(WorkflowManagerImp::Instance()->NotificationManager())->IsHostProcess());
        QStringList told;
        QVERIFY(StartHelper(QStringLiteral(VMWF_NOTIFY_HOST),
                            {QString::number(QCoreApplication::applicationPid())}, &told));

        // Even when told of a link to the helper that a listener here waits for, this process
        // neither tells the listener nor records the link: only the host keeps a list of links.
        WorkflowNotificationManagerImp* imp = ImpOf(WorkflowManagerImp::Instance()->NotificationManager());
        CountingListener listener(int(m_helper->processId()));
        WorkflowPrivate::AddLinkStateListener(&listener);
        imp->ApplicationLinkStarted(m_application);
        WorkflowPrivate::RemoveLinkStateListener(&listener);
        QCOMPARE(listener.told, 0);
        QVERIFY(imp->LinkedApplications().isEmpty());

        const QString changed =
            WriteWorkflow(QStringLiteral("changes/Changed.workflow"), QStringLiteral("After"));
        QVERIFY(Manager()->WorkflowModifiedInPlugin(Wide(kWorkflowId), Wide(changed)));
        const QStringList received =
            Command(QStringLiteral("HostReportMsg")).value(QStringLiteral("Received")).toStringList();
        QVERIFY(received.contains(QStringLiteral("HostReportMsg")));
        QVERIFY(!received.contains(QStringLiteral("WorkflowModifiedMsg")));
        QCOMPARE(NameOf(CatalogueWorkflow()), QStringLiteral("Before"));

        // ... yet it still receives what the host sends.
        Command(QStringLiteral("HostModifyMsg"), {{QStringLiteral("WorkflowId"), kWorkflowId},
                                                  {QStringLiteral("WorkflowSourceFile"), changed}});
        QCOMPARE(NameOf(CatalogueWorkflow()), QStringLiteral("After"));
    }

    void finishedMessageWithoutRegistryEntryEmitsNothing()
    {
        QStringList told;
        QVERIFY(StartHelper(QStringLiteral(VMWF_NOTIFY_HOST),
                            {QString::number(QCoreApplication::applicationPid())}, &told));
        WorkflowNotificationManager* notifications = Manager()->GetNotificationManager();
        QSignalSpy beginning(notifications, &WorkflowNotificationManager::WorkflowExecutionBeginning);
        QSignalSpy finished(notifications, &WorkflowNotificationManager::WorkflowExecutionFinished);
        for (const QString& name : {QStringLiteral("WorkflowExecutionBeginningMsg"),
                                    QStringLiteral("WorkflowExecutionFinishedMsg")})
        {
            const QVariantMap answer =
                Command(QStringLiteral("HostRelayMsg"),
                        {{QStringLiteral("Name"), name},
                         {QStringLiteral("Data"),
                          QVariantMap{{QStringLiteral("WorkflowId"), QStringLiteral("Id_NotRunning")}}}});
            QCOMPARE(answer.value(QStringLiteral("Result")), QVariant(true));
        }
        QCOMPARE(m_recorder->Count(QStringLiteral("WorkflowExecutionBeginningMsg")), 1);
        QCOMPARE(m_recorder->Count(QStringLiteral("WorkflowExecutionFinishedMsg")), 1);
        QCOMPARE(beginning.size(), 0);
        QCOMPARE(finished.size(), 0);
    }

    void runStartAndEndReachTheLauncher()
    {
        const int self = int(QCoreApplication::applicationPid());
        QStringList told;
        QVERIFY(StartHelper(QStringLiteral(VMWF_NOTIFY_HOST),
                            {QString::number(self), QStringLiteral("--search"),
                             m_files->path() + QStringLiteral("/catalogue")},
                            &told));
        const qint64 hostProcessId = m_helper->processId();

        // The object lives only while the signal is delivered, so what it says is read there.
        struct Seen
        {
            QString workflowId;
            int hostProcessId = 0;
            int launcherProcessId = 0;
            bool finished = false;
        };
        QList<Seen> beginnings;
        QList<Seen> endings;
        const auto read = [this](ExecutingWorkflow* executing) {
            Seen seen;
            Workflow* workflow = executing->GetWorkflow();
            seen.workflowId = workflow ? ReadText([workflow](WideChar* buffer, int size) {
                return workflow->GetId(buffer, size);
            })
                                       : QString();
            seen.hostProcessId = executing->GetHostProcessId();
            seen.launcherProcessId = executing->GetLauncherProcessId();
            seen.finished = executing->IsFinished();
            return seen;
        };
        WorkflowNotificationManager* notifications = Manager()->GetNotificationManager();
        QSignalSpy beginning(notifications, &WorkflowNotificationManager::WorkflowExecutionBeginning);
        QSignalSpy finished(notifications, &WorkflowNotificationManager::WorkflowExecutionFinished);
        connect(notifications, &WorkflowNotificationManager::WorkflowExecutionBeginning, this,
                [&](ExecutingWorkflow* executing) { beginnings.append(read(executing)); });
        connect(notifications, &WorkflowNotificationManager::WorkflowExecutionFinished, this,
                [&](ExecutingWorkflow* executing) { endings.append(read(executing)); });

        QVariantMap answer =
            Command(QStringLiteral("HostBeginMsg"), {{QStringLiteral("WorkflowId"), kWorkflowId},
                                                     {QStringLiteral("LauncherProcessId"), self}});
        QCOMPARE(answer.value(QStringLiteral("Result")), QVariant(true));
        QCOMPARE(beginning.size(), 1);
        QCOMPARE(finished.size(), 0);
        QCOMPARE(beginnings.size(), 1);
        QCOMPARE(beginnings.at(0).workflowId, kWorkflowId);
        QCOMPARE(beginnings.at(0).hostProcessId, int(hostProcessId));
        QCOMPARE(beginnings.at(0).launcherProcessId, self);
        QVERIFY(!beginnings.at(0).finished);

        answer = Command(QStringLiteral("HostEndMsg"), {{QStringLiteral("WorkflowId"), kWorkflowId}});
        QCOMPARE(answer.value(QStringLiteral("Result")), QVariant(true));
        QCOMPARE(beginning.size(), 1);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(endings.size(), 1);
        QCOMPARE(endings.at(0).workflowId, kWorkflowId);
        QCOMPARE(endings.at(0).hostProcessId, int(hostProcessId));
        QCOMPARE(endings.at(0).launcherProcessId, self);
        QVERIFY(endings.at(0).finished);
        disconnect(notifications, nullptr, this, nullptr);
    }

    void runOfAnotherLauncherIsNotAnnouncedHere()
    {
        // The host announces to this process, but the entry names another launcher: nothing is
        // emitted, since only runs this process launched are looked up.
        const int self = int(QCoreApplication::applicationPid());
        // A workflow of its own, so that no entry left by another test answers for it.
        const QString otherId = QStringLiteral("Id_OtherLauncherFlow");
        QVERIFY(WriteFile(
            m_files->path() + QStringLiteral("/catalogue/Other.workflow"),
            WorkflowDocument(WorkflowElement(
                QStringLiteral(R"(Id="%1" Name="Other" IsTemplate="True")").arg(otherId).toUtf8()))));
        QStringList told;
        QVERIFY(StartHelper(QStringLiteral(VMWF_NOTIFY_HOST),
                            {QString::number(self), QStringLiteral("--search"),
                             m_files->path() + QStringLiteral("/catalogue")},
                            &told));
        WorkflowNotificationManager* notifications = Manager()->GetNotificationManager();
        QSignalSpy beginning(notifications, &WorkflowNotificationManager::WorkflowExecutionBeginning);
        QSignalSpy finished(notifications, &WorkflowNotificationManager::WorkflowExecutionFinished);
        const QVariantMap answer =
            Command(QStringLiteral("HostBeginMsg"), {{QStringLiteral("WorkflowId"), otherId},
                                                     {QStringLiteral("LauncherProcessId"), self + 100000}});
        QCOMPARE(answer.value(QStringLiteral("Result")), QVariant(true));
        Command(QStringLiteral("HostEndMsg"), {{QStringLiteral("WorkflowId"), otherId}});
        QCOMPARE(m_recorder->Count(QStringLiteral("WorkflowExecutionBeginningMsg")), 1);
        QCOMPARE(m_recorder->Count(QStringLiteral("WorkflowExecutionFinishedMsg")), 1);
        QCOMPARE(beginning.size(), 0);
        QCOMPARE(finished.size(), 0);
    }

    void handlerReemitsWhatTheHubDelivers()
    {
        OstrelMessageHandler handler;
        QSignalSpy messages(&handler, &OstrelMessageHandler::OstrelMessageReceived);
        QSignalSpy links(&handler, &OstrelMessageHandler::ApplicationLinkStarted);
        ApplicationMessageHandler& hubSide = handler;
        ApplicationMessage message(QStringLiteral("SomethingMsg"), {});
        hubSide.MessageReceived(&message);
        Application* application = ApplicationManager::GetInstance()->GetApplication(1);
        hubSide.ApplicationLinkStarted(application);
        QCOMPARE(messages.size(), 1);
        QCOMPARE(messages.at(0).at(0).value<ApplicationMessage*>(), &message);
        QCOMPARE(links.size(), 1);
        QCOMPARE(links.at(0).at(0).value<Application*>(), application);
    }

private:
    TestEnvironment m_environment;
    std::unique_ptr<Recorder> m_recorder;
    std::unique_ptr<QTemporaryDir> m_files;
    QString m_catalogueFile;
    std::unique_ptr<QProcess> m_helper;
    Application* m_application = nullptr;
};

QTEST_GUILESS_MAIN(tst_NotificationManager)
#include "tst_notificationmanager.moc"
