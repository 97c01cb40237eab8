// SPDX-License-Identifier: MIT
#include "manager/WorkflowManagerImp.h"

#include "execution/ExecutingRegistry.h"
#include "execution/Plugin.h"
#include "manager/CatalogueIndex.h"
#include "manager/Constants.h"
#include "manager/ProductRules.h"
#include "manager/WorkflowQuery.h"
#include "notification/WorkflowNotificationManagerImp.h"
#include "platform/Platform.h"
#include "util/FacadeAccess.h"
#include "util/FileUtil.h"
#include "util/NameOrder.h"
#include "util/XlfCatalog.h"
#include "util/XmlFiler.h"
#include "util/XmlStreamReading.h"
#include "workflow/WorkflowFile.h"
#include "workflow/WorkflowImp.h"
#include "workflow/WorkflowSettings.h"

#include <OstrelAdapter/ApplicationManager.h>

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QThread>
#include <QThreadPool>

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <vector>

namespace Velmora::WorkflowCore {

WorkflowManagerImp::WorkflowManagerImp() : QObject(nullptr)
{
    const QString appData = ApplicationDataFolder();
    if (!appData.isEmpty())
    {
        QString folder = appData;
        folder.replace(QLatin1Char('\\'), QLatin1Char('/'));
        m_userWorkflowFolder = QStringLiteral("%1/%2/%3").arg(folder, Names::Velmora, Names::Workflows);
    }
    m_registry = std::make_unique<ExecutingRegistry>(IsHostApplication());
}

void WorkflowManagerImp::LoadProducts()
{
    m_products = ProductCatalog();
    m_products.Load();
}

WorkflowManagerImp::~WorkflowManagerImp()
{
    EmptyCatalogue();
    delete m_notificationManager;
    m_notificationManager = nullptr;
    m_registry.reset();
    // Nothing is asked of the plug-ins on the way out: their libraries are simply unloaded.
    for (Plugin* plugin : std::as_const(m_plugins))
    {
        plugin->Unload();
        delete plugin;
    }
    m_plugins.clear();
    m_pluginFolders.clear();
}

namespace {

// Folders with fewer workflow files than this are read on the caller's thread alone.
const qsizetype kParallelScanMinimum = 8;
// How many consecutive files a worker reads at a time, at most.
const size_t kScanBatch = 16;
// An index smaller than this, a few dozen files' worth, is read on the caller's thread alone.
const qint64 kParallelIndexMinimum = 64 * 1024;
// What a scan of at least this many files leaves in its index is let go of on a worker.
const qsizetype kReleaseAsideMinimum = 1000;

// What parsing a file takes of a worker's heap, in eighths of a byte per byte of the file: the
// plain data its records keep, the rest being reused from batch to batch. A little under what
// the benchmark's files of about 2 KB take; a guess too low only costs speed.
constexpr qint64 kParsedEighthsPerFileByte = 12;
// The most a worker reserves at once: enough to take thousands of fresh pages in one go, little
// enough to leave nothing much unused when the folder is done.
constexpr qint64 kWorkerReservationStep = 1024 * 1024;
// What the records of a file the index answers for take of the caller's heap (the record, its
// fields, its keys in the lookups, its path), about what the benchmark's records take. The
// file's plain data stays on the heap of the thread that loaded or parsed it.
constexpr size_t kRecordBytesPerIndexedFile = 1100;

// The most workflow files one scan in this process has taken. A heap that held a catalogue keeps
// its pages after the catalogue is gone, and a rescan fills them again: only what goes beyond
// is worth reserving.
std::atomic<qsizetype> s_mostFilesScanned{0};

// The part of count files whose memory is likely fresh to this process.
double FreshShare(qsizetype count)
{
    const qsizetype held = s_mostFilesScanned.load();
    return count > held ? double(count - held) / double(count) : 0.0;
}

const QString kPluginSearchPathsValue = QStringLiteral("WorkflowPluginSearchPaths");

// The machine-wide plug-in folders, as one ";"-separated text.
QString MachinePluginSearchPaths()
{
    const auto settings = Platform::MachineSettings(QStringLiteral("Workflow/2017"));
    const QVariant value = settings->value(kPluginSearchPathsValue);
    // A settings file may split a value with commas into a list; the commas were part of the text.
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList().join(QLatin1Char(','));
    return value.toString();
}

// The folders searched for a plug-in named without a folder, in the order they are tried.
QStringList PluginSearchFolders(const QString& configured)
{
    QStringList folders = SplitSearchPaths(configured);
    folders += SplitSearchPaths(MachinePluginSearchPaths());
    folders.append(ApplicationFolder());
    return folders;
}

} // namespace

Plugin* WorkflowManagerImp::PluginFor(Workflow* workflow)
{
    if (!workflow)
        return nullptr;
    const QString name = ImpOf(workflow)->Fields().Plugin;
    // Whatever folder an earlier search recorded for this workflow no longer holds.
    m_pluginFolders.remove(workflow);
    if (name.isEmpty())
        return nullptr;
    QString path;
    if (QDir::isAbsolutePath(name))
    {
        path = name;
    }
    else
    {
        const QStringList folders = PluginSearchFolders(m_pluginSearchPaths);
        for (const QString& folder : folders)
        {
            if (folder.isEmpty())
                continue;
            // Only a regular file is a library; a folder or a fifo of that name is passed over.
            const QFileInfo candidate(QDir(folder), name);
            if (!candidate.isFile())
                continue;
            path = QDir::cleanPath(candidate.absoluteFilePath());
            m_pluginFolders.insert(workflow, QDir::cleanPath(QDir(folder).absolutePath()));
            break;
        }
        if (path.isEmpty())
            return nullptr;
    }
    // One record per library file name, wherever each workflow found its copy.
    const QString fileName = QFileInfo(path).fileName();
    for (Plugin* plugin : std::as_const(m_plugins))
    {
        if (QFileInfo(plugin->Path()).fileName().compare(fileName, Qt::CaseInsensitive) == 0)
            return plugin;
    }
    auto* plugin = new Plugin(path);
    m_plugins.append(plugin);
    return plugin;
}

QString WorkflowManagerImp::PluginFolderFor(Workflow* workflow) const
{
    return m_pluginFolders.value(workflow);
}

WorkflowManagerImp* WorkflowManagerImp::Instance()
{
    WorkflowManager* manager = WorkflowManager::GetInstance();
    return manager ? ImpOf(manager) : nullptr;
}

WorkflowCatalogue* CurrentWorkflowCatalogue()
{
    return WorkflowManagerImp::Instance();
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
    const bool announce = !m_catalogue.isEmpty();
    if (announce)
        emit CatalogueAboutToBeEmptied();
    const QList<Workflow*> workflows = m_catalogue;
    m_catalogue = QList<Workflow*>();
    m_catalogueLoaded = false;
    m_byId.clear();
    m_byName.clear();
    m_indexedKeys.clear();
    m_indexStale = false;
    for (Workflow* workflow : workflows)
        m_pluginFolders.remove(workflow);
    // Every template remembers its introduction choice as it goes: one rewrite of the file.
    WorkflowSettingsStore::Batch batch(m_settings);
    qDeleteAll(workflows);
    if (announce)
        emit CatalogueEmptied();
}

void WorkflowManagerImp::ScanCatalogue()
{
    EmptyCatalogue();
    // One look at the settings file for the whole scan, not a status call per template.
    WorkflowSettingsStore::ReadSession settingsSession(m_settings);
    if (m_searchPaths.isEmpty() && m_userWorkflowFolder.isEmpty())
    {
        // Nothing to read is a loaded, empty catalogue: asking again must not rebuild it.
        m_catalogueLoaded = true;
        return;
    }
    // Folders are taken as written: one named twice is read twice, and the earlier copy wins.
    QStringList folders = SplitSearchPaths(m_searchPaths);
    if (!m_userWorkflowFolder.isEmpty())
        folders.append(m_userWorkflowFolder);

    // Taken before anything is listed: a file changed after this moment is never trusted from
    // the index this scan writes.
    const qint64 scanStartedNs = QDateTime::currentMSecsSinceEpoch() * 1000000LL;
    // One scan is one moment: the dates of its files are read in one time zone.
    const LocalTimeConversions conversions;
    const QString indexFile = m_scanReadsDocuments || !m_useScanIndex
                                  ? QString()
                                  : CatalogueIndex::FileFor(folders, m_currentLocale);
    CatalogueIndex index(indexFile, CatalogueIndex::KeyFor(folders, m_currentLocale), scanStartedNs);
    // A large index is read on a worker while this thread lists the folders and makes the
    // records of the entries read so far; a small one is read here, as a few files are.
    std::future<void> loading;
    const struct WaitForLoading
    {
        std::future<void>& loading;
        ~WaitForLoading()
        {
            if (loading.valid())
                loading.wait();
        }
    } waitForLoading{loading};
    const bool freshHeap = s_mostFilesScanned.load() == 0;
    // In a heap that held a catalogue already, records are made faster than entries are loaded,
    // and taking each entry as it comes costs the two threads more in each other's way than it
    // saves.
    const bool takeAsLoaded = freshHeap || m_alwaysTakeAsLoaded;
    if (!indexFile.isEmpty() && QFileInfo(indexFile).size() < kParallelIndexMinimum)
    {
        index.Load(freshHeap);
    }
    else if (!indexFile.isEmpty())
    {
        index.ExpectLoad();
        auto loaded = std::make_shared<std::promise<void>>();
        loading = loaded->get_future();
        ScanPool().start([&index, loaded, freshHeap, takeAsLoaded] {
            index.Load(freshHeap, takeAsLoaded);
            loaded->set_value();
        });
        // A catalogue of that size has thousands of templates, and the first of them would
        // otherwise wait here for the user's choices of all of them to be read.
        m_settings.ReadAhead(ScanPool());
    }
    // The names of every folder first: they tell how many files the scan is about.
    std::vector<ListedFolder> listed;
    listed.reserve(size_t(folders.size()));
    qsizetype listedCount = 0;
    for (const QString& folder : std::as_const(folders))
    {
        listed.push_back(ListWorkflowFileNames(folder));
        listedCount += qsizetype(listed.back().candidates.size());
    }
    m_lastScanFilesRead = 0;
    const double freshShare = FreshShare(listedCount);
    // Most files hold one workflow: the catalogue and its lookups take their room once, rather
    // than growing and rehashing step by step as thousands of records come in.
    m_catalogue.reserve(listedCount);
    m_byId.reserve(listedCount);
    m_byName.reserve(listedCount);
    m_indexedKeys.reserve(listedCount);
    index.ReserveEntries(listedCount);
    qsizetype found = 0;
    for (const ListedFolder& folder : listed)
        found += ReadListedFolder(folder, index, freshShare, takeAsLoaded);
    if (loading.valid())
        loading.get();
    index.Finish();
    if (found >= kReleaseAsideMinimum)
        index.ReleaseOn(ScanPool());
    qsizetype held = s_mostFilesScanned.load();
    while (found > held && !s_mostFilesScanned.compare_exchange_weak(held, found))
    {
    }

    m_catalogueLoaded = true;
    RemoveOrphans();
    InheritTemplateProducts();
}

QThreadPool& WorkflowManagerImp::ScanPool()
{
    if (!m_scanPool)
    {
        m_scanPool = std::make_unique<QThreadPool>();
        m_scanPool->setMaxThreadCount(qBound(2, QThread::idealThreadCount(), 4));
    }
    return *m_scanPool;
}

namespace {

// Whether a name ends in ".workflow", in any case: a folder of thousands of files asks it of
// every name, so plain letters are compared as they stand, and only a name that ends in other
// characters (a sign that folds to one of the letters) is compared the long way.
bool HasWorkflowSuffix(const QString& name)
{
    static constexpr char16_t kSuffix[] = u".workflow";
    constexpr qsizetype kLength = sizeof kSuffix / sizeof kSuffix[0] - 1;
    if (name.size() < kLength)
        return false;
    const QChar* tail = name.constData() + name.size() - kLength;
    for (qsizetype i = 0; i < kLength; ++i)
    {
        const char16_t c = tail[i].unicode();
        if (c >= 0x80)
            return name.endsWith(QLatin1String(".workflow"), Qt::CaseInsensitive);
        const char16_t lower = c >= u'A' && c <= u'Z' ? char16_t(c + (u'a' - u'A')) : c;
        if (lower != kSuffix[i])
            return false;
    }
    return true;
}

} // namespace

WorkflowManagerImp::ListedFolder WorkflowManagerImp::ListWorkflowFileNames(const QString& folder)
{
    ListedFolder listed;
    const QString base = QDir::cleanPath(QDir(folder).absolutePath());
    listed.prefix = base.endsWith(QLatin1Char('/')) ? base : base + QLatin1Char('/');
    listed.names = std::make_unique<Platform::FolderNames>(folder);
    // Named "*.workflow" in any case, in the order of their names: what a listing of the folder
    // for that pattern gives.
    const QStringList& names = listed.names->Names();
    listed.candidates.reserve(size_t(names.size()));
    for (qsizetype i = 0; i < names.size(); ++i)
    {
        if (HasWorkflowSuffix(names.at(i)))
            listed.candidates.push_back(i);
    }
    SortByName(listed.candidates, names);
    return listed;
}

bool WorkflowManagerImp::IdentifyWorkflowFile(const ListedFolder& folder, size_t k, FoundFile& file)
{
    const Platform::ListedFile listed = folder.names->Identify(folder.candidates[k]);
    if (!listed.regularFile || listed.hidden)
        return false;
    file.path = folder.prefix + listed.name;
    file.identity = listed.identity;
    return true;
}

QList<WorkflowManagerImp::FoundFile> WorkflowManagerImp::ListWorkflowFiles(const QString& folder)
{
    const ListedFolder listed = ListWorkflowFileNames(folder);
    QList<FoundFile> found;
    found.reserve(qsizetype(listed.candidates.size()));
    FoundFile file;
    for (size_t k = 0; k < listed.candidates.size(); ++k)
    {
        if (IdentifyWorkflowFile(listed, k, file))
            found.append(std::move(file));
    }
    return found;
}

qsizetype WorkflowManagerImp::ReadListedFolder(const ListedFolder& folder, CatalogueIndex& index,
                                               double freshShare, bool takeAsLoaded)
{
    const size_t count = folder.candidates.size();
    size_t next = 0;
    qsizetype found = 0;
    QList<FoundFile> rest;
    FoundFile file;
    if (takeAsLoaded && !m_scanReadsDocuments && index.MayAnswer())
    {
        // While the index answers, each file is asked its status, taken from the index as the
        // load hands its entry over, and made into records at once, one file after the other:
        // a later start of unchanged files makes its records while the other core is still
        // reading the index, instead of after the status of every file and the whole index.
        // The records' fresh pages are made ready first, while the load gets ahead.
        const Platform::HeapReservation reservation(
            size_t(double(count) * freshShare * double(kRecordBytesPerIndexedFile)));
        Platform::ListedFile status;
        for (; next < count; ++next)
        {
            // The load asks the files it reads the entries of for their status, on its own
            // thread; a file it has not reached yet is asked here.
            const QString& name = folder.names->Names().at(folder.candidates[next]);
            if (!index.LoadedStatus(folder.prefix, name, file.path, status))
                status = folder.names->Identify(folder.candidates[next]);
            if (!status.regularFile || status.hidden)
                continue;
            file.identity = status.identity;
            ++found;
            const ScannedFilePtr scanned = index.Take(file.path, file.identity);
            if (!scanned)
                break;
            if (scanned->result == StreamReadResult::Read)
                AddWorkflowRecords(file.path, scanned->data);
            index.Enter(file.path, file.identity, scanned, true);
        }
        // From the first file the index does not answer for, the files are read as a first scan
        // reads them.
        if (next < count)
            rest.append(std::move(file));
        ++next;
    }
    rest.reserve(rest.size() + qsizetype(count - std::min(next, count)));
    for (; next < count; ++next)
    {
        if (!IdentifyWorkflowFile(folder, next, file))
            continue;
        ++found;
        rest.append(std::move(file));
    }
    ReadWorkflowFiles(rest, index, freshShare);
    return found;
}

namespace {

// The bytes of one file turned into plain data; on any thread.
ScannedFilePtr ScanFile(const QString& path)
{
    auto file = std::make_shared<ScannedFile>();
    file->result = ReadWorkflowFileData(path, QString(), file->data);
    return file;
}

} // namespace

namespace {

template <typename Memory> void ReserveWorkerMemory(Memory& memory, qint64 batchBytes, size_t workers)
{
    // What this thread has made ready in this scan and not yet used.
    thread_local quint64 scan = 0;
    thread_local qint64 ready = 0;
    if (scan != memory.scan)
    {
        scan = memory.scan;
        ready = 0;
    }
    const qint64 left = memory.unclaimedBytes.fetch_sub(batchBytes) - batchBytes;
    const auto needed = qint64(double(batchBytes * kParsedEighthsPerFileByte / 8) * memory.freshShare);
    if (ready < needed)
    {
        // This thread's share of what is left, as the other workers take theirs.
        const qint64 share = std::clamp<qint64>(
            qint64(double(left * kParsedEighthsPerFileByte / 8 / qint64(workers)) * memory.freshShare), 0,
            kWorkerReservationStep);
        auto reservation = std::make_unique<Platform::HeapReservation>(size_t(needed - ready + share));
        ready += share + needed - ready;
        const std::lock_guard<std::mutex> lock(memory.mutex);
        memory.reservations.push_back(std::move(reservation));
    }
    ready -= needed;
}

} // namespace

void WorkflowManagerImp::ReadWorkflowFiles(const QList<FoundFile>& files, CatalogueIndex& index,
                                           double freshShare)
{
    // Files the index answers for need no reading; the others are parsed, on workers when
    // there are enough of them to be worth a pool's start-up.
    const qsizetype count = files.size();
    std::vector<ScannedFilePtr> scanned(static_cast<size_t>(count));
    qsizetype toRead = 0;
    for (qsizetype i = 0; i < count; ++i)
    {
        const FoundFile& file = files.at(i);
        if (!m_scanReadsDocuments)
            scanned[static_cast<size_t>(i)] = index.Take(file.path, file.identity);
        toRead += scanned[static_cast<size_t>(i)] ? 0 : 1;
    }
    m_lastScanFilesRead += toRead;
    // The records are made here, on this thread, while the cores that loaded the index or
    // parsed the files have little left to do: another thread makes their pages ready.
    const Platform::HeapReservation reservation(
        size_t(double(count - toRead) * freshShare * double(kRecordBytesPerIndexedFile)),
        Platform::HeapReservation::Populating::Aside);
    // A parsed file's plain data is let go once its records are made: they hold its texts. What
    // the index handed over stays with the index until it is let go of.
    const auto addRecords = [&](qsizetype i, ScannedFilePtr file, bool fromIndex) {
        if (file->result == StreamReadResult::Read)
            AddWorkflowRecords(files.at(i).path, file->data);
        index.Enter(files.at(i).path, files.at(i).identity, file, fromIndex);
    };
    if (m_scanReadsDocuments)
    {
        // The reference reading: each file through the XML filer, record by record.
        for (const FoundFile& file : files)
            ReadWorkflowDocument(file.path);
        return;
    }
    if (toRead < kParallelScanMinimum)
    {
        for (qsizetype i = 0; i < count; ++i)
        {
            ScannedFilePtr file = std::move(scanned[static_cast<size_t>(i)]);
            const bool fromIndex = file != nullptr;
            addRecords(i, fromIndex ? std::move(file) : ScanFile(files.at(i).path), fromIndex);
        }
        return;
    }
    QThreadPool& pool = ScanPool();

    // Workers only parse; records, translations and signals stay on this thread, file by file
    // in the listed order, as a scan on this thread alone would give them. Files go to the
    // workers in batches of consecutive files: a hand-over between threads costs more than
    // parsing a small file. A window of batches in flight keeps the plain data of a huge folder
    // from piling up ahead of its records.
    std::vector<qsizetype> pending; // the files to read, in order
    pending.reserve(static_cast<size_t>(toRead));
    for (qsizetype i = 0; i < count; ++i)
    {
        if (!scanned[static_cast<size_t>(i)])
            pending.push_back(i);
    }
    // Each worker makes fresh memory ready for the batches it takes, a share of what is left of
    // the folder at a time: a worker's heap fills with the plain data of its batches.
    struct WorkerMemory
    {
        std::mutex mutex;
        std::vector<std::unique_ptr<Platform::HeapReservation>> reservations;
        std::atomic<qint64> unclaimedBytes{0};
        double freshShare = 1.0;
        quint64 scan = 0;
    };
    static std::atomic<quint64> s_scans{0};
    // Shared with the batches: a batch still running when this scan is abandoned keeps it.
    const auto workerMemory = std::make_shared<WorkerMemory>();
    workerMemory->scan = ++s_scans;
    for (const qsizetype i : pending)
        workerMemory->unclaimedBytes += files.at(i).identity.size;
    workerMemory->freshShare = freshShare;
    using Batch = std::vector<ScannedFilePtr>;
    // Smaller batches for a small folder, so that every worker still gets a share.
    const size_t workers = static_cast<size_t>(pool.maxThreadCount());
    const size_t batchSize = std::clamp<size_t>(pending.size() / (8 * workers), 1, kScanBatch);
    const size_t batches = (pending.size() + batchSize - 1) / batchSize;
    std::vector<std::future<Batch>> parsing(batches);
    const size_t window = 2 * workers;
    size_t submitted = 0;
    const auto submitUpTo = [&](size_t last) {
        for (; submitted < batches && submitted <= last; ++submitted)
        {
            const size_t from = submitted * batchSize;
            const size_t to = std::min(pending.size(), from + batchSize);
            QStringList paths;
            paths.reserve(qsizetype(to - from));
            qint64 batchBytes = 0;
            for (size_t k = from; k < to; ++k)
            {
                paths.append(files.at(pending[k]).path);
                batchBytes += files.at(pending[k]).identity.size;
            }
            auto promise = std::make_shared<std::promise<Batch>>();
            parsing[submitted] = promise->get_future();
            pool.start([promise, paths = std::move(paths), batchBytes, workerMemory, workers] {
                ReserveWorkerMemory(*workerMemory, batchBytes, workers);
                Batch batch;
                batch.reserve(size_t(paths.size()));
                for (const QString& path : paths)
                {
                    try
                    {
                        batch.push_back(ScanFile(path));
                    }
                    catch (...)
                    {
                        // A file that could not be parsed for want of memory contributes
                        // nothing this time, and is not remembered as unreadable.
                        batch.push_back(nullptr);
                    }
                }
                promise->set_value(std::move(batch));
            });
        }
    };
    size_t next = 0; // the next of the pending files
    Batch current;
    for (qsizetype i = 0; i < count; ++i)
    {
        ScannedFilePtr file = std::move(scanned[static_cast<size_t>(i)]);
        const bool fromIndex = file != nullptr;
        if (!fromIndex)
        {
            const size_t batch = next / batchSize;
            if (next % batchSize == 0)
            {
                submitUpTo(batch + window - 1);
                current = parsing[batch].get();
            }
            file = std::move(current[next % batchSize]);
            ++next;
            if (!file)
                continue;
        }
        addRecords(i, std::move(file), fromIndex);
    }
}

void WorkflowManagerImp::AddWorkflowRecords(const QString& path, const WorkflowFileData& data)
{
    XlfCatalog* catalog = data.xlfFile.isEmpty() ? nullptr : TranslationCatalog(data.xlfFile);
    for (const WorkflowElementData& element : std::as_const(data.elements))
    {
        auto* workflow = new Workflow;
        ImpOf(workflow)->SetCatalogue(this);
        ImpOf(workflow)->Fields().XlfFile = data.xlfFile;
        // The scan's paths are clean as it builds them: a clean folder, a separator and a name.
        ReadWorkflow(element, path, path, catalog, *ImpOf(workflow));
        AppendNewRecord(workflow);
    }
}

void WorkflowManagerImp::ReadWorkflowDocument(const QString& path)
{
    XmlFiler filer;
    if (!filer.Open(path))
        return;
    const QString xlfFile =
        TranslateThroughFileCatalog(filer, [this](const QString& name) { return TranslationCatalog(name); });
    if (!filer.GoToFirstChild())
        return;
    do
    {
        auto* workflow = new Workflow;
        ImpOf(workflow)->SetCatalogue(this);
        ImpOf(workflow)->Fields().XlfFile = xlfFile;
        filer.PushPosition();
        ReadWorkflow(filer, *ImpOf(workflow));
        filer.PopPosition();
        AppendNewRecord(workflow);
    } while (filer.GoToNextSibling());
}

void WorkflowManagerImp::RemoveOrphans()
{
    const QList<Workflow*> snapshot = m_catalogue;
    for (Workflow* workflow : snapshot)
    {
        // A lookup below returns this workflow or one before it, so every workflow reached
        // here is still alive.
        const WorkflowFields& fields = ImpOf(workflow)->Fields();
        if (fields.IsTemplate || FindWorkflow(fields.TemplateId, QString()))
            continue;
        Workflow* found = FindWorkflow(fields.Id, fields.SourceFile);
        if (!found || found->IsTemplate())
            continue;
        RemoveAt(IndexOfWorkflow(found));
    }
}

void WorkflowManagerImp::InheritTemplateProducts()
{
    if (!m_catalogueLoaded)
        return;
    const QList<Workflow*> snapshot = m_catalogue;
    for (Workflow* workflow : snapshot)
        ImpOf(workflow)->InheritProducts();
}

void WorkflowManagerImp::RemoveAt(int index)
{
    if (index < 0 || index >= m_catalogue.size())
        return;
    emit WorkflowAboutToBeRemoved(index);
    Workflow* workflow = m_catalogue.takeAt(index);
    IndexRemove(workflow);
    m_pluginFolders.remove(workflow);
    delete workflow;
    emit WorkflowRemoved(index);
}

bool WorkflowManagerImp::AddWorkflow(Workflow* workflow)
{
    if (!workflow || m_indexedKeys.contains(workflow))
        return false;
    AppendNewRecord(workflow);
    return true;
}

void WorkflowManagerImp::AppendNewRecord(Workflow* workflow)
{
    ImpOf(workflow)->SetCatalogue(this);
    const int index = static_cast<int>(m_catalogue.size());
    emit WorkflowAboutToBeInserted(index);
    m_catalogue.append(workflow);
    IndexAppend(workflow);
    // The inserted signal carries the new count, not the index: the list models pair them so.
    emit WorkflowInserted(static_cast<int>(m_catalogue.size()));
}

void WorkflowManagerImp::IndexAppend(Workflow* workflow)
{
    const WorkflowFields& fields = ImpOf(workflow)->Fields();
    IndexedKeys keys{FoldedText(fields.Id), FoldedText(fields.Name)};
    m_byId[keys.id].append(workflow);
    m_byName[keys.name].append(workflow);
    m_indexedKeys.insert(workflow, keys);
}

void WorkflowManagerImp::IndexRemove(Workflow* workflow)
{
    const auto found = m_indexedKeys.constFind(workflow);
    if (found == m_indexedKeys.constEnd())
        return;
    const auto removeFrom = [workflow](QHash<FoldedText, Bucket>& index, const FoldedText& key) {
        auto bucket = index.find(key);
        if (bucket == index.end())
            return;
        bucket->removeOne(workflow);
        if (bucket->isEmpty())
            index.erase(bucket);
    };
    removeFrom(m_byId, found->id);
    removeFrom(m_byName, found->name);
    m_indexedKeys.erase(found);
}

void WorkflowManagerImp::KeysChanged(const Workflow* workflow)
{
    // A record outside the catalogue (one being read, or a caller's own) is in no index.
    if (m_indexedKeys.contains(workflow))
        m_indexStale = true;
}

void WorkflowManagerImp::EnsureIndexFresh()
{
    if (!m_indexStale)
        return;
    m_byId.clear();
    m_byName.clear();
    m_indexedKeys.clear();
    for (Workflow* workflow : std::as_const(m_catalogue))
        IndexAppend(workflow);
    m_indexStale = false;
}

Workflow* WorkflowManagerImp::FindWorkflow(const QString& id, const QString& sourceFile)
{
    EnsureCatalogueLoaded();
    return LookUpLoaded(id, sourceFile);
}

Workflow* WorkflowManagerImp::FindWorkflowFor(const Workflow* asker, const QString& id,
                                              const QString& sourceFile)
{
    if (!m_catalogueLoaded && m_indexedKeys.contains(asker))
        return LookUpLoaded(id, sourceFile);
    return FindWorkflow(id, sourceFile);
}

Workflow* WorkflowManagerImp::LookUpLoaded(const QString& id, const QString& sourceFile)
{
    EnsureIndexFresh();
    const auto bucket = m_byId.constFind(FoldedText(id));
    if (bucket == m_byId.constEnd())
        return nullptr;
    if (sourceFile.isEmpty())
        return bucket->first();
    // The same file however its path is spelled.
    const QFileInfo wanted(sourceFile);
    for (Workflow* workflow : *bucket)
    {
        if (wanted == QFileInfo(ImpOf(workflow)->Fields().SourceFile))
            return workflow;
    }
    return nullptr;
}

Workflow* WorkflowManagerImp::FindWorkflowByName(const QString& name)
{
    EnsureCatalogueLoaded();
    EnsureIndexFresh();
    const auto bucket = m_byName.constFind(FoldedText(name));
    return bucket == m_byName.constEnd() ? nullptr : bucket->first();
}

int WorkflowManagerImp::IndexOfWorkflow(const Workflow* workflow) const
{
    if (!workflow || !m_indexedKeys.contains(workflow))
        return -1;
    return static_cast<int>(m_catalogue.indexOf(const_cast<Workflow*>(workflow)));
}

void WorkflowManagerImp::NotifyWorkflowChanged(const QString& id, const QString& sourceFile)
{
    // Records call this from inside their own members: a scan here could destroy the caller.
    Workflow* entry = LookUpLoaded(id, sourceFile);
    if (!entry)
        return;
    const int index = IndexOfWorkflow(entry);
    if (index >= 0)
        emit WorkflowModified(index);
}

bool WorkflowManagerImp::DeleteWorkflow(const QString& id, const QString& sourceFile, bool removeFromFile)
{
    Workflow* workflow = FindWorkflow(id, sourceFile);
    if (!workflow || workflow->IsTemplate())
        return false;
    const int index = IndexOfWorkflow(workflow);
    if (index < 0)
        return false;
    emit WorkflowAboutToBeRemoved(index);
    if (removeFromFile)
    {
        const QString file = ImpOf(workflow)->Fields().SourceFile;
        // Callers rely on this early return leaving the about-to-be-removed signal unpaired.
        if (!QFileInfo(file).isWritable())
            return false;
        XmlFiler filer(false);
        bool anyLeft = false;
        if (filer.Open(file) && filer.GoToFirstChild())
        {
            if (GoToWorkflowWithId(filer, id))
            {
                QDomElement doomed = filer.GetCurrentElement();
                doomed.parentNode().removeChild(doomed);
            }
            anyLeft = !filer.GetDocumentElement().firstChildElement().isNull();
        }
        // A file that cannot be rewritten or removed still holds the workflow: not deleted.
        const bool written = anyLeft ? filer.Save(file) : QFile::remove(QDir::cleanPath(file));
        if (!written)
            return false;
    }
    m_catalogue.removeAt(index);
    IndexRemove(workflow);
    m_pluginFolders.remove(workflow);
    delete workflow;
    emit WorkflowRemoved(index);
    return true;
}

QList<Workflow*> WorkflowManagerImp::QueryWorkflows(const QString& filter, const QString& sort)
{
    EnsureCatalogueLoaded();
    QList<Workflow*> snapshot = m_catalogue;
    if (!filter.isEmpty())
    {
        const WorkflowFilterMap filters = ParseFilterText(filter);
        if (!filters.isEmpty())
            snapshot.removeIf([&](Workflow* workflow) { return !PassesFilter(workflow, filters); });
    }
    if (!sort.isEmpty())
        SortWorkflows(snapshot, sort, [this](const QString& ids) { return ProductDisplayNames(ids); });
    return snapshot;
}

bool WorkflowManagerImp::PassesFilterEntry(Workflow* workflow, const QString& key, const QString& value)
{
    return WorkflowMatchesFilter(workflow, key, value);
}

bool WorkflowManagerImp::PassesFilter(Workflow* workflow, const WorkflowFilterMap& filters)
{
    for (auto it = filters.cbegin(); it != filters.cend(); ++it)
    {
        if (!PassesFilterEntry(workflow, it.key(), it.value()))
            return false;
    }
    return true;
}

QString WorkflowManagerImp::ProductDisplayNames(const QString& productIds) const
{
    return m_products.NameList(productIds);
}

XlfCatalog* WorkflowManagerImp::TranslationCatalog(const QString& xlfFile)
{
    const QString path = FindTranslationFile(xlfFile, m_currentLocale, m_searchPaths);
    if (path.isEmpty())
        return nullptr;
    auto& catalog = m_translations[path];
    if (!catalog)
        catalog = std::make_unique<XlfCatalog>(path);
    return catalog.get();
}

} // namespace Velmora::WorkflowCore
