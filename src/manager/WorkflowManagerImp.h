// SPDX-License-Identifier: MIT
#pragma once

#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/ProductCatalog.h"
#include "manager/WorkflowQuery.h"
#include "platform/Platform.h"
#include "util/FoldedText.h"
#include "workflow/WorkflowCatalogue.h"
#include "workflow/WorkflowSettings.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QVarLengthArray>

#include <map>
#include <memory>

namespace Velmora::WorkflowCore {

class CatalogueIndex;
class ExecutingRegistry;
class Plugin;
class XlfCatalog;
class XmlFiler;
struct WorkflowFileData;

class WorkflowManagerImp : public QObject, public WorkflowCatalogue
{
    Q_OBJECT
public:
    WorkflowManagerImp();
    ~WorkflowManagerImp() override;

    // The implementation of the singleton, or null when there is none.
    static WorkflowManagerImp* Instance();

    void SetWorkflowSearchPaths(const QString& paths);
    QString WorkflowSearchPaths() const { return m_searchPaths; }
    QString UserWorkflowFolder() const override { return m_userWorkflowFolder; }
    void SetWorkflowPluginSearchPaths(const QString& paths);
    QString WorkflowPluginSearchPaths() const { return m_pluginSearchPaths; }
    void SetCurrentLocale(const QString& locale);
    QString CurrentLocale() const { return m_currentLocale; }
    void SetHostApplicationContext(HostApplicationContext* context) { m_context = context; }
    HostApplicationContext* GetHostApplicationContext() const { return m_context; }
    void SetNotificationManager(WorkflowNotificationManager* manager) { m_notificationManager = manager; }
    WorkflowNotificationManager* NotificationManager() const { return m_notificationManager; }
    ExecutingRegistry* Registry() const { return m_registry.get(); }
    // The plug-in record of the workflow's "Plugin" file, found on the plug-in search folders
    // and created on first request (one per file name, ignoring case); null when the workflow
    // names none or no folder holds it.
    Plugin* PluginFor(Workflow* workflow);
    // The absolute folder in which the workflow's plug-in was found; empty when none was.
    QString PluginFolderFor(Workflow* workflow) const;
    // Read by Initialize once the hub and the notification manager are up; held until Uninitialize.
    void LoadProducts();
    // Starts the host application on a temporary copy of the workflow; true only when it started.
    bool ExecuteWorkflow(Workflow* workflow, WorkflowLaunchPoint launchPoint);
    const ProductCatalog& Products() const override { return m_products; }

    // The catalogue.
    bool IsCatalogueLoaded() const { return m_catalogueLoaded; }
    void EnsureCatalogueLoaded();
    void ScanCatalogue();
    void EmptyCatalogue();
    bool AddWorkflow(Workflow* workflow);
    const QList<Workflow*>& Catalogue() const { return m_catalogue; }
    // The first workflow whose id equals id ignoring case and, for a non-empty sourceFile, that
    // came from that same file. Loads the catalogue when needed.
    Workflow* FindWorkflow(const QString& id, const QString& sourceFile);
    // The first workflow whose name equals name ignoring case. Loads the catalogue when needed.
    Workflow* FindWorkflowByName(const QString& name);
    // For a record asking about another workflow (its template) from inside one of its members:
    // like FindWorkflow, but never starts the scan while the asker is a catalogue record, since
    // the scan would destroy the asker under its own feet.
    Workflow* FindWorkflowFor(const Workflow* asker, const QString& id, const QString& sourceFile) override;
    int IndexOfWorkflow(const Workflow* workflow) const;
    // Tells the observers that the catalogue's entry for that id and file changed.
    void NotifyWorkflowChanged(const QString& id, const QString& sourceFile) override;
    // A catalogue record's id or name changed: the key index is rebuilt before its next use.
    void KeysChanged(const Workflow* workflow) override;
    // The user's per-workflow settings; one store per manager.
    WorkflowSettingsStore& Settings() override { return m_settings; }
    // A snapshot of the catalogue without the workflows the filter text rejects, sorted by the
    // sort text.
    QList<Workflow*> QueryWorkflows(const QString& filter, const QString& sort);
    // Whether the workflow passes one filter entry of the list models' keys.
    bool PassesFilterEntry(Workflow* workflow, const QString& key, const QString& value);
    // Every entry of filters passes; an empty map passes every workflow.
    bool PassesFilter(Workflow* workflow, const WorkflowFilterMap& filters);
    // The display names of a list of product ids, joined with ",".
    QString ProductDisplayNames(const QString& productIds) const;

    // Removes the workflow with its element (or its whole file) when removeFromFile is set.
    bool DeleteWorkflow(const QString& id, const QString& sourceFile, bool removeFromFile);

    // The translations of the XLIFF file named xlfFile for the current locale, found on the
    // workflow search paths and kept for the life of the manager; null when there is none.
    XlfCatalog* TranslationCatalog(const QString& xlfFile) override;

    // Scans read each file as a whole document instead of streaming it: the slower reader the
    // streaming one is checked against.
    void SetScanReadsDocuments(bool documents) { m_scanReadsDocuments = documents; }
    // Whether scans keep and use the per-user index of what the files held. Off, every file is
    // read: the catalogue the index is checked against.
    void SetScanUsesIndex(bool use) { m_useScanIndex = use; }
    // Whether every scan takes each entry of a large index as soon as its load hands it over, as
    // a process's first scan does (its memory is all fresh, and the load's is the dearer half);
    // a later scan in the same process otherwise asks all files for their status first.
    void SetScanTakesEntriesAsLoaded(bool always) { m_alwaysTakeAsLoaded = always; }
    // A workflow file of a folder, with its identity when it was listed.
    struct FoundFile
    {
        QString path;
        Platform::FileIdentity identity;
    };
    // The workflow files of one folder in the order a scan reads them: regular files and links
    // to them, not hidden, named "*.workflow" in any case, by name; with clean absolute paths.
    static QList<FoundFile> ListWorkflowFiles(const QString& folder);
    // The names of one folder that may be workflow files, in the order a scan reads them, before
    // anything else is asked of them.
    struct ListedFolder
    {
        std::unique_ptr<Platform::FolderNames> names;
        // What the absolute path of each file starts with.
        QString prefix;
        // The names named "*.workflow" in any case, as places in names, by name.
        std::vector<qsizetype> candidates;
    };
    static ListedFolder ListWorkflowFileNames(const QString& folder);
    // The kth candidate of a listed folder, when it is a workflow file: a regular file or a link
    // to one, not hidden, with its identity from a status call made now.
    static bool IdentifyWorkflowFile(const ListedFolder& folder, size_t k, FoundFile& file);
    // How many files the last scan read, the others being answered by the index.
    qsizetype LastScanFilesRead() const { return m_lastScanFilesRead; }

Q_SIGNALS:
    void WorkflowAboutToBeInserted(int index);
    void WorkflowAboutToBeRemoved(int index);
    void WorkflowInserted(int count);
    void WorkflowRemoved(int index);
    void WorkflowModified(int index);
    // Around the emptying of a catalogue that holds workflows, by a rescan or the manager's end:
    // the per-row signals say nothing of it, so views start over.
    void CatalogueAboutToBeEmptied();
    void CatalogueEmptied();

private:
    // The files of one folder into records, in order. freshShare is the part of the memory they
    // take that is likely fresh to this process: that part is made ready in one go.
    void ReadWorkflowFiles(const QList<FoundFile>& files, CatalogueIndex& index, double freshShare);
    // The workflow files of one listed folder into records, in order; how many there were. With
    // takeAsLoaded, each file's entry is taken as soon as the index's load hands it over; else
    // the folder's files are all asked for their status first.
    qsizetype ReadListedFolder(const ListedFolder& folder, CatalogueIndex& index, double freshShare,
                               bool takeAsLoaded);
    void ReadWorkflowDocument(const QString& path);
    // The workers of large scans, started on first use.
    QThreadPool& ScanPool();
    void AddWorkflowRecords(const QString& path, const WorkflowFileData& data);
    void RemoveOrphans();
    void InheritTemplateProducts();
    void RemoveAt(int index);
    void IndexAppend(Workflow* workflow);
    // Appends a record the scan has just made, which no list holds yet, with its two signals.
    void AppendNewRecord(Workflow* workflow);
    void IndexRemove(Workflow* workflow);
    void EnsureIndexFresh();
    Workflow* LookUpLoaded(const QString& id, const QString& sourceFile);

    // Declared first so that it outlives every record, which writes to it as it goes.
    WorkflowSettingsStore m_settings;
    QString m_searchPaths;
    QString m_userWorkflowFolder;
    QString m_pluginSearchPaths;
    QString m_currentLocale;
    QList<Workflow*> m_catalogue;
    QList<Plugin*> m_plugins;
    QHash<Workflow*, QString> m_pluginFolders;
    bool m_catalogueLoaded = false;
    bool m_scanReadsDocuments = false;
    bool m_useScanIndex = true;
    bool m_alwaysTakeAsLoaded = false;
    qsizetype m_lastScanFilesRead = 0;
    HostApplicationContext* m_context = nullptr;
    std::unique_ptr<ExecutingRegistry> m_registry;
    ProductCatalog m_products;
    WorkflowNotificationManager* m_notificationManager = nullptr;
    std::map<QString, std::unique_ptr<XlfCatalog>> m_translations;
    // Worker threads that turn the bytes of a large scan's files into plain data.
    std::unique_ptr<QThreadPool> m_scanPool;

    // Id and name, compared case-folded, to the catalogue's workflows of that key, in catalogue
    // order, so that lookups answer in constant time what the walk over the catalogue would answer.
    // A record of the catalogue whose key changes says so (KeysChanged), and the index is rebuilt.
    struct IndexedKeys
    {
        FoldedText id;
        FoldedText name;
    };
    // Most keys name one workflow: its bucket holds it without a list of its own.
    using Bucket = QVarLengthArray<Workflow*, 1>;
    QHash<FoldedText, Bucket> m_byId;
    QHash<FoldedText, Bucket> m_byName;
    QHash<const Workflow*, IndexedKeys> m_indexedKeys;
    bool m_indexStale = false;
};

} // namespace Velmora::WorkflowCore
