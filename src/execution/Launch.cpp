// SPDX-License-Identifier: MIT
#include "execution/Launch.h"

#include "execution/Analytics.h"
#include "execution/ExecutingRegistry.h"
#include "execution/Plugin.h"
#include "manager/WorkflowManagerImp.h"
#include "platform/Platform.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowArgumentsImp.h"
#include "workflow/WorkflowFile.h"
#include "workflow/WorkflowImp.h"

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationInfo.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/OstrelAdapterUtility.h>

#include <QApplication>
#include <QDir>
#include <QIcon>
#include <QMessageBox>
#include <QSettings>
#include <QStringList>
#include <QUuid>

namespace Velmora::WorkflowCore {

namespace {

const int kTemporaryNameLimit = 246;
const int kConnectTimeoutMs = 2000;

QString Argument(const QString& key, const QString& value)
{
    return QStringLiteral("/%1=%2").arg(key, value);
}

OstrelAdapter::ApplicationInfo ChooseHost(const HostVersion& wanted, const QString& versionAsked)
{
    OstrelAdapter::ApplicationManager* hub = OstrelAdapter::ApplicationManager::GetInstance();
    if (!hub)
        return OstrelAdapter::ApplicationInfo();
    const QList<OstrelAdapter::ApplicationInfo> installed =
        hub->GetInstalledApplications(QStringLiteral("Id_VmWorkflowHost"), versionAsked);
    for (const OstrelAdapter::ApplicationInfo& info : installed)
    {
        const QList<unsigned int> numeric = info.GetNumericVersion();
        if (numeric.size() >= 2 && numeric.at(0) == wanted.major && numeric.at(1) == wanted.minor)
            return info;
    }
    return OstrelAdapter::ApplicationInfo();
}

// The one message a user ever sees from the library. Only a process with widgets can show it.
void ShowStartFailure(WorkflowImp& record, OstrelAdapter::Application::StartupError error)
{
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
        return;
    QMessageBox box(QMessageBox::Critical, record.Fields().Name,
                    OstrelAdapter::OstrelAdapterUtility::FormatApplicationStarupErrorMessage(
                        QStringLiteral("VmWorkflowHost"), error),
                    QMessageBox::NoButton);
    // Said again on purpose: only an explicit choice keeps the box from adding an OK button when shown.
    box.setStandardButtons(QMessageBox::NoButton);
    box.setWindowIcon(QIcon(record.GetImage(WorkflowImageAutomatic, 16)));
    box.exec();
}

} // namespace

HostVersion ParseHostVersion(const QString& value)
{
    HostVersion version;
    const QStringList parts = value.split(QLatin1Char('.'), Qt::SkipEmptyParts);
    if (parts.size() != 2)
        return version;
    // A part that is not a number reads as 0 (toUInt's failure value), as callers expect.
    version.major = parts.at(0).toUInt();
    version.minor = parts.at(1).toUInt();
    version.fromSettings = true;
    return version;
}

QString ReadHostVersionSetting()
{
    const auto settings = Platform::MachineSettings(Platform::LibrarySettingsKey());
    return settings->value(QStringLiteral("WorkflowHostVersion")).toString();
}

QString TemporaryLaunchName(const QString& workflowName, const QString& uuid)
{
    QString name = QStringLiteral("Temp_%1_%2").arg(workflowName, uuid);
    const int excess = name.size() - kTemporaryNameLimit;
    if (excess > 0)
    {
        const int lastSeparator = name.lastIndexOf(QLatin1Char('_'));
        const int start = qMax(0, lastSeparator - excess);
        name.remove(start, lastSeparator - start);
    }
    return name;
}

bool WorkflowManagerImp::ExecuteWorkflow(Workflow* workflow, WorkflowLaunchPoint launchPoint)
{
    if (!workflow)
        return false;
    if (m_context && !m_context->CanExecuteWorkflow(workflow))
        return false;
    // A process runs at most one unfinished workflow of its own at a time.
    if (m_registry && !m_registry->Enumerate(true, false).isEmpty())
        return false;
    if (m_context && !m_context->BeforeExecuteWorkflow(workflow))
        return false;

    WorkflowLaunchHandler* launchHandler = nullptr;
    if (Plugin* plugin = PluginFor(workflow))
        launchHandler = plugin->LaunchHandler();

    WorkflowArguments arguments;
    if (launchHandler && !launchHandler->PrepareLaunch(workflow, &arguments))
        return false;

    WorkflowImp& record = *ImpOf(workflow);
    const WorkflowFields& fields = record.Fields();
    const QString temporaryName =
        TemporaryLaunchName(fields.Name, QUuid::createUuid().toString(QUuid::WithBraces));
    const QString temporaryPath =
        QStringLiteral("%1/%2.workflow")
            .arg(QDir::fromNativeSeparators(QDir::tempPath()), SafeFileName(temporaryName));
    // The host reports a file it cannot read; the launch itself goes on regardless.
    WriteWorkflow(record, fields.Name, temporaryPath, fields.Id);

    QStringList commandLine;
    commandLine << (fields.Id.isEmpty() ? temporaryPath
                                        : QStringLiteral("%1?%2").arg(temporaryPath, fields.Id));
    commandLine << Argument(QStringLiteral("Locale"), m_currentLocale);
    commandLine << Argument(QStringLiteral("PluginSearchPaths"), PluginFolderFor(workflow));
    commandLine << Argument(QStringLiteral("WorkflowSearchPath"), m_searchPaths);
    commandLine << Argument(QStringLiteral("ParentProcessId"), QString::number(Platform::CurrentProcessId()));
    if (m_context)
        m_context->AddLaunchArguments(workflow, &arguments);
    const QMap<QString, QString>& values = ImpOf(arguments)->values;
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        commandLine << Argument(it.key(), it.value());

    const QString versionSetting = ReadHostVersionSetting();
    const HostVersion wanted = ParseHostVersion(versionSetting);
    // A value that does not name a major and a minor version must not narrow the search: the
    // fallback version has to be found among every installed host.
    const OstrelAdapter::ApplicationInfo host =
        ChooseHost(wanted, wanted.fromSettings ? versionSetting : QString());

    OstrelAdapter::ApplicationManager* hub = OstrelAdapter::ApplicationManager::GetInstance();
    OstrelAdapter::Application::StartupError error = OstrelAdapter::Application::StartupError();
    OstrelAdapter::Application* started =
        hub ? hub->StartApplication(host, commandLine, QMap<QString, QString>(), &error) : nullptr;
    if (!started)
    {
        ShowStartFailure(record, error);
        return false;
    }
    started->Connect(kConnectTimeoutMs);
    ReportWorkflowExecution(workflow, launchPoint);
    return true;
}

} // namespace Velmora::WorkflowCore
