#include "manager/WorkflowManagerImp.h"

#include "execution/ExecutingRegistry.h"
#include "execution/Plugin.h"
#include "manager/Constants.h"
#include "platform/Platform.h"
#include "workflow/WorkflowImp.h"

#include <OstrelAdapter/ApplicationManager.h>

#include <QDir>
#include <QFileInfo>

namespace Velmora::WorkflowCore {

WorkflowManagerImp::WorkflowManagerImp() : QObject(nullptr)
{
    const QString appData = Platform::ApplicationDataFolder();
    if (!appData.isEmpty())
    {
        QString folder = appData;
        folder.replace(QLatin1Char('\\'), QLatin1Char('/'));
        m_userWorkflowFolder = QStringLiteral("%1/%2/%3").arg(folder, Names::Velmora, Names::Workflows);
    }
    m_registry = std::make_unique<ExecutingRegistry>();
}

WorkflowManagerImp::~WorkflowManagerImp()
{
    EmptyCatalogue();
    delete m_notificationManager;
    m_notificationManager = nullptr;
    m_registry.reset();
    for (Plugin* plugin : std::as_const(m_plugins))
    {
        plugin->Unload();
        delete plugin;
    }
    m_plugins.clear();
}

WorkflowManagerImp* WorkflowManagerImp::Instance()
{
    WorkflowManager* manager = WorkflowManager::GetInstance();
    return manager ? manager->GetImp() : nullptr;
}

void WorkflowManagerImp::SetWorkflowSearchPaths(const QString& paths)
{
    if (m_searchPaths == paths)
        return;
    m_searchPaths = paths;
    ScanCatalogue();
}

void WorkflowManagerImp::SetWorkflowPluginSearchPaths(const QString& paths)
{
    if (m_pluginSearchPaths != paths)
        m_pluginSearchPaths = paths;
}

void WorkflowManagerImp::SetCurrentLocale(const QString& locale)
{
    if (m_currentLocale == locale)
        return;
    m_currentLocale = locale;
    if (auto* hub = OstrelAdapter::ApplicationManager::GetInstance())
        hub->SetCurrentLocale(m_currentLocale);
}

void WorkflowManagerImp::EnsureCatalogueLoaded()
{
    if (!m_catalogueLoaded)
        ScanCatalogue();
}

void WorkflowManagerImp::EmptyCatalogue()
{
    const QList<Workflow*> workflows = m_catalogue;
    m_catalogue = QList<Workflow*>();
    m_catalogueLoaded = false;
    qDeleteAll(workflows);
}

void WorkflowManagerImp::ScanCatalogue()
{
    EmptyCatalogue();
    if (m_searchPaths.isEmpty() && m_userWorkflowFolder.isEmpty())
        return;
    QStringList folders = m_searchPaths.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    if (!m_userWorkflowFolder.isEmpty())
        folders.append(m_userWorkflowFolder);
    // Reading the folders arrives with the workflow file reader.
    Q_UNUSED(folders);
    m_catalogueLoaded = true;
}

bool WorkflowManagerImp::AddWorkflow(Workflow* workflow)
{
    if (!workflow || m_catalogue.contains(workflow))
        return false;
    const int index = static_cast<int>(m_catalogue.size());
    emit WorkflowAboutToBeInserted(index);
    m_catalogue.append(workflow);
    // The inserted signal carries the new count, not the index: the list models pair them so.
    emit WorkflowInserted(static_cast<int>(m_catalogue.size()));
    return true;
}

Workflow* WorkflowManagerImp::FindWorkflow(const QString& id, const QString& sourceFile)
{
    EnsureCatalogueLoaded();
    const QFileInfo wanted(sourceFile);
    for (Workflow* workflow : std::as_const(m_catalogue))
    {
        const WorkflowFields& fields = workflow->GetImp()->Fields();
        if (fields.Id.compare(id, Qt::CaseInsensitive) != 0)
            continue;
        if (!sourceFile.isEmpty() && wanted != QFileInfo(fields.SourceFile))
            continue;
        return workflow;
    }
    return nullptr;
}

Workflow* WorkflowManagerImp::FindWorkflowByName(const QString& name)
{
    EnsureCatalogueLoaded();
    for (Workflow* workflow : std::as_const(m_catalogue))
    {
        if (workflow->GetImp()->Fields().Name.compare(name, Qt::CaseInsensitive) == 0)
            return workflow;
    }
    return nullptr;
}

int WorkflowManagerImp::IndexOfWorkflow(const Workflow* workflow) const
{
    return static_cast<int>(m_catalogue.indexOf(const_cast<Workflow*>(workflow)));
}

void WorkflowManagerImp::NotifyWorkflowChanged(const QString& id, const QString& sourceFile)
{
    Workflow* entry = FindWorkflow(id, sourceFile);
    if (!entry)
        return;
    const int index = IndexOfWorkflow(entry);
    if (index >= 0)
        emit WorkflowModified(index);
}

} // namespace Velmora::WorkflowCore
