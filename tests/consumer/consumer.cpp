// SPDX-License-Identifier: MIT
// An application that embeds the installed workflow library: it initialises the manager, lists
// the workflows of the folders it is given (once through an iterator, once through the sorted
// list proxy), launches one workflow through the installed host application and waits for the
// run's end. It needs QtCore only.
//
//     workflow-consumer <folders joined by ";"> <workflow id> [Key=Value ...]
//
// Exit status: the run's exit status, or 90 and above when the consumer itself fails.

#include <OstrelAdapter/ApplicationManager.h>
#include <VmWorkflowCore/VmWorkflowCoreVersion.h>
#include <VmWorkflowCore/WideText.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QMap>
#include <QSortFilterProxyModel>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

enum ConsumerFailure
{
    BadCommandLine = 90,
    NoWorkflows = 91,
    ListsDisagree = 92,
    NoHost = 93,
    UnknownWorkflow = 94,
    LaunchRefused = 95,
    NoEnd = 96,
    VersionMismatch = 97
};

const int kRunTimeoutMs = 60000;

QString IdOf(Workflow* workflow)
{
    return ReadWideText([workflow](WideChar* buffer, int size) { return workflow->GetId(buffer, size); });
}

QString NameOf(Workflow* workflow)
{
    return ReadWideText([workflow](WideChar* buffer, int size) { return workflow->GetName(buffer, size); });
}

int Fail(int status, const QString& sentence)
{
    std::fprintf(stderr, "workflow-consumer: %s\n", qPrintable(sentence));
    return status;
}

// The embedding application's side of a launch: it hands the host the Key=Value pairs it was
// given on its command line.
class ConsumerContext : public HostApplicationContext
{
public:
    explicit ConsumerContext(QMap<QString, QString> arguments) : m_arguments(std::move(arguments)) {}
    bool CanExecuteWorkflow(Workflow*) override { return true; }
    void AddLaunchArguments(Workflow*, WorkflowArguments* arguments) override
    {
        for (auto it = m_arguments.cbegin(); it != m_arguments.cend(); ++it)
            arguments->SetValue(WideText(it.key()), WideText(it.value()));
    }
    int GetCurrentProductId(WideChar* buffer, int size) override
    {
        if (!buffer)
            return 0;
        if (size >= 1)
            buffer[0] = 0;
        return 0;
    }
    bool BeforeExecuteWorkflow(Workflow*) override { return true; }

private:
    QMap<QString, QString> m_arguments;
};

int Run(const QStringList& args)
{
    if (args.size() < 3)
        return Fail(BadCommandLine,
                    QStringLiteral("usage: workflow-consumer <folders> <workflow id> [Key=Value ...]"));
    QMap<QString, QString> launchArguments;
    for (const QString& pair : args.mid(3))
    {
        const qsizetype equals = pair.indexOf(QLatin1Char('='));
        if (equals <= 0)
            return Fail(BadCommandLine, QStringLiteral("\"%1\" is not of the form Key=Value").arg(pair));
        launchArguments.insert(pair.left(equals), pair.mid(equals + 1));
    }

    WorkflowManager* manager = WorkflowManager::GetInstance();
    int major = 0;
    int minor = 0;
    manager->GetWorkflowVersionInfo(major, minor);
    std::printf("library %d.%d, headers %s\n", major, minor, VMWORKFLOWCORE_VERSION_STRING);
    if (major != VMWORKFLOWCORE_VERSION_MAJOR || minor != VMWORKFLOWCORE_VERSION_MINOR)
        return Fail(VersionMismatch,
                    QStringLiteral("the loaded library is not the one the headers describe"));

    manager->SetWorkflowSearchPaths(WideText(args.at(1)));

    QStringList listed;
    std::unique_ptr<WorkflowIterator> iterator(manager->GetWorkflows());
    while (iterator->MoveNext())
    {
        Workflow* workflow = iterator->GetCurrent();
        listed << IdOf(workflow);
        std::printf("workflow %s  %s\n", qPrintable(IdOf(workflow)), qPrintable(NameOf(workflow)));
    }
    if (listed.isEmpty())
        return Fail(NoWorkflows, QStringLiteral("no workflow found in %1").arg(args.at(1)));

    std::unique_ptr<QSortFilterProxyModel> model(
        WorkflowPrivate::GetWorkflowListModel(QString(), QStringLiteral("Name:0")));
    if (!model || model->rowCount() != listed.size())
        return Fail(ListsDisagree, QStringLiteral("the list proxy holds %1 rows for %2 workflows")
                                       .arg(model ? model->rowCount() : -1)
                                       .arg(listed.size()));
    for (int row = 0; row < model->rowCount(); ++row)
        std::printf("row %d  %s\n", row, qPrintable(model->index(row, 0).data().toString()));

    const auto hosts = Velmora::OstrelAdapter::ApplicationManager::GetInstance()->GetInstalledApplications(
        QStringLiteral("Id_VmWorkflowHost"), QString());
    if (hosts.isEmpty())
        return Fail(NoHost, QStringLiteral("no host application is installed"));
    std::printf("host %s %s\n", qPrintable(hosts.first().GetVersion()),
                qPrintable(hosts.first().GetExecutable()));

    Workflow* workflow = manager->GetWorkflow(WideText(args.at(2)), nullptr);
    if (!workflow)
        return Fail(UnknownWorkflow, QStringLiteral("no workflow has the id %1").arg(args.at(2)));

    ConsumerContext context(launchArguments);
    manager->SetHostApplicationContext(&context);

    QEventLoop loop;
    int status = NoEnd;
    bool began = false;
    QObject::connect(manager->GetNotificationManager(),
                     &WorkflowNotificationManager::WorkflowExecutionBeginning, &loop,
                     [&](ExecutingWorkflow* run) {
                         if (run->GetWorkflow() != workflow)
                             return;
                         began = true;
                         std::printf("beginning in host process %d\n", run->GetHostProcessId());
                     });
    QObject::connect(
        manager->GetNotificationManager(), &WorkflowNotificationManager::WorkflowExecutionFinished, &loop,
        [&](ExecutingWorkflow* run) {
            if (run->GetWorkflow() != workflow)
                return;
            status = run->GetErrorStatus();
            std::printf("finished in host process %d with status %d\n", run->GetHostProcessId(), status);
            loop.quit();
        });
    if (!manager->ExecuteWorkflow(workflow, ApplicationMenu))
    {
        manager->SetHostApplicationContext(nullptr);
        return Fail(LaunchRefused, QStringLiteral("the launch of %1 was refused").arg(args.at(2)));
    }
    QTimer::singleShot(kRunTimeoutMs, &loop, &QEventLoop::quit);
    loop.exec();
    manager->SetHostApplicationContext(nullptr);
    if (status == NoEnd || !began)
        return Fail(NoEnd,
                    QStringLiteral("the run of %1 was not seen from beginning to end").arg(args.at(2)));
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    WorkflowManager::Initialize();
    const int status = Run(application.arguments());
    WorkflowManager::Uninitialize();
    std::fflush(stdout);
    return status;
}
