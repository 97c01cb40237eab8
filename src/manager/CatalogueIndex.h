// SPDX-License-Identifier: MIT
#pragma once

#include "platform/Platform.h"
#include "util/XmlStreamReading.h"

#include <QFile>
#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QThreadPool>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace Velmora::WorkflowCore {

class CatalogueIndexFile;

// What one workflow file gave the scan that read it: the plain, untranslated data of its
// elements. It depends on the file's bytes alone, so it can be kept from one start to the next.
struct ScannedFile
{
    StreamReadResult result = StreamReadResult::Unreadable;
    WorkflowFileData data;
};
using ScannedFilePtr = std::shared_ptr<const ScannedFile>;

// The per-user index of a catalogue: for each workflow file of the last scan, its identity
// (size, modification and status-change times, inode) and what was read from it, so that a later start with
// unchanged files reads one index instead of thousands of files. Translations and per-user
// settings are not kept: they are applied afresh at every start, so a changed translation file
// or a changed choice is never answered from here.
//
// Long settings markup, most of what an index holds, is not read at a start: each record's
// markup stays deferred (CompactText::Deferred) and is read from the index, which the records
// keep open, when it is first asked for. Such markup is checked against its digest when it is
// read; markup found damaged then is read from its workflow file instead, and the index is
// dropped, to be written anew by the next scan.
//
// The index is a cache and nothing else: one that is missing, damaged, truncated, written for
// another catalogue or by another format is ignored and written again; one that cannot be
// written only costs the next start its speed.
class CatalogueIndex
{
public:
    // An index kept in file for the catalogue that key describes (its folders and locale), for
    // a scan that began at scanStartedNs on the wall clock.
    CatalogueIndex(QString file, QString key, qint64 scanStartedNs);
    // An index that was being written and not finished is dropped: the old one stays.
    ~CatalogueIndex();
    CatalogueIndex(const CatalogueIndex&) = delete;
    CatalogueIndex& operator=(const CatalogueIndex&) = delete;

    // The index file of a catalogue read from these folders in that locale: in the user's cache
    // folder, named by a digest of both. Empty when the user has no cache folder.
    static QString FileFor(const QStringList& folders, const QString& locale);
    // The text that tells catalogues apart; kept whole in the index, so that two catalogues
    // whose names collide never read each other's entries.
    static QString KeyFor(const QStringList& folders, const QString& locale);

    // Reads the index an earlier scan wrote. False, with nothing loaded, for anything that is
    // not an intact index of this catalogue in this format. With reserveMemory, the memory the
    // entries will take is made ready as the load goes: worth it in a process whose heap has not
    // held a catalogue yet, wasted in one that has.
    //
    // The load may run on another thread than the scan's, announced by ExpectLoad() first: the
    // scan then takes each entry as soon as it is read, in the order the index holds them, which
    // is the order the last scan entered its files in. A later start of unchanged files makes its
    // records while the rest of the index is still being read.
    //
    // With askStatus, the load also asks each entry's file for its status as it reads the entry,
    // on its own thread, so that the scan need not (see LoadedStatus).
    bool Load(bool reserveMemory = true, bool askStatus = false);
    // Announces a load about to run on another thread: until it ends, the scan waits for the
    // entries it asks for instead of finding none.
    void ExpectLoad();
    // Waits for a load running on another thread; true when it read an intact index.
    bool WaitForLoad();
    // A scan about to enter about this many files takes the room to remember them at once.
    void ReserveEntries(qsizetype files) { m_entered.reserve(files); }
    // Whether the index may still answer: a load is running or has read an intact index.
    bool MayAnswer() const;
    // What path gave the last scan, when the file still has the identity it had then and was
    // last changed well before that scan began: a change made within the same tick of the
    // file system's clock as the read could not be told from the file read. Null otherwise, and
    // null for every file once the load has found the index damaged. The index holds what it
    // hands out until it is let go of (ReleaseOn) or ends: a path asked for twice gets the same
    // data.
    ScannedFilePtr Take(const QString& path, const Platform::FileIdentity& identity);
    // The path of the file name in folder (which ends in its separator), and the status the load
    // took of that file, when the file's entry is the next one and already handed over; false
    // otherwise, without waiting, and the scan asks the file itself. The path is the entry's
    // own text when the entry is the file's: thousands of files then share the index's paths
    // instead of each making its own.
    bool LoadedStatus(QStringView folder, QStringView name, QString& path, Platform::ListedFile& status);
    // Enters what this scan took for path, read from the file or taken from the index
    // (fromIndex). The new index is written as files are entered, from the first one that
    // differs from what was loaded on: a scan of unchanged files writes nothing, and a first
    // scan keeps nothing of its files but the records made from them.
    void Enter(const QString& path, const Platform::FileIdentity& identity, const ScannedFilePtr& file,
               bool fromIndex);
    // Ends the scan: when anything differed from the loaded index, the new one replaces it,
    // atomically and under a lock file. False when nothing could be written (the reason does
    // not matter: the next start reads the files again).
    bool Finish();
    // After Finish: what the index still holds of the loaded entries and of the scan's files is
    // let go of on a thread of pool, while the scan's thread goes on. Thousands of entries take a
    // while to free, and nothing of them is needed once the scan is over.
    void ReleaseOn(QThreadPool& pool);

    // An index file of the catalogue key whose blocks after the first are the given payloads,
    // each framed and digested as a scan frames its blocks: for tests and fuzzing that must
    // reach past the digests to the entries' own bytes.
    static QByteArray Framed(const QString& key, qint64 scanStartedNs, const QList<QByteArray>& payloads);

    // The layout of the file's fixed start, for tests that damage an index on purpose: eight
    // bytes of magic, then the format version as a 32-bit number.
    static constexpr int kVersionOffset = 8;
    static constexpr quint32 kFormatVersion = 5;
    // Settings markup in bytes at least this long is kept apart from its file's entry and read
    // when it is first asked for; shorter markup costs less to keep than to find again.
    static constexpr qsizetype kDeferredMarkupMinimum = 128;

private:
    struct Entry
    {
        QString path;
        Platform::FileIdentity identity;
        // What was loaded, kept after it is taken.
        ScannedFilePtr file;
        qint64 offset = 0;
        qint64 length = 0;
        // The file as the load found it, when it asked.
        Platform::ListedFile status;
        bool statusAsked = false;
    };
    // Where an entry is: its chunk and its place in it.
    struct EntryAt
    {
        qsizetype chunk = 0;
        qsizetype at = 0;
    };
    enum class LoadState
    {
        None,
        Loading,
        Loaded,
        Failed
    };
    struct Writing;

    bool LoadEntries(bool reserveMemory, bool askStatus, qsizetype& entries);
    void Publish(std::vector<Entry>& chunk);
    void EndLoad(bool loaded, qsizetype entries);
    // Once the load has ended: where each path's entry is, made on first use (only files out of
    // step with the index need it). The first of two entries for one path counts.
    const QHash<QString, EntryAt>& Paths();
    // The entry at the scan's place in the index, null when none has been handed over there;
    // with wait, waits for one until the load ends.
    Entry* EntryAtPlace(bool wait);
    // The entry at the scan's place in the index when it is path's, and the scan goes past it;
    // waits for it to be read.
    Entry* NextEntry(const QString& path);
    // Path's entry wherever it is, once the whole index is read; the scan goes on after it.
    Entry* EntryOf(const QString& path);
    void SeeChunks(std::unique_lock<std::mutex>& lock);
    bool StartWriting();
    // Once the load has ended: the entry of path, null when there is none, and its bytes.
    const Entry* LoadedEntry(const QString& path);
    QByteArray LoadedBlock(const Entry* entry) const;

    QString m_file;
    QString m_key;
    qint64 m_scanStartedNs = 0;

    // Shared by the loading thread and the scan's thread.
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::atomic<LoadState> m_state{LoadState::None};
    // Entries in the order of the index, in chunks handed over as they are read; an entry is
    // never touched by the loading thread once its chunk is handed over.
    std::vector<std::vector<Entry>> m_chunks;
    // How many entries the scan has passed: the load asks for the status of files only well
    // ahead of the scan, and leaves the files the scan is about to reach to the scan.
    std::atomic<qsizetype> m_passed{0};
    qint64 m_loadedScanStartedNs = 0;
    // How many entries the load read, once it has ended.
    qsizetype m_entryCount = 0;
    // The loaded index stays open: its blocks are copied into the new one as they stand, and
    // the records' deferred markup is read from it.
    std::shared_ptr<CatalogueIndexFile> m_source;

    // The scan's thread only: the chunks it has seen and its place among the entries.
    std::vector<std::pair<Entry*, qsizetype>> m_seen;
    EntryAt m_next;
    QHash<QString, EntryAt> m_byPath;
    bool m_byPathMade = false;
    QSet<QString> m_entered;
    // Files entered unchanged before anything differed: copied once writing starts.
    QStringList m_unchangedEntered;
    std::unique_ptr<Writing> m_writing;
    bool m_writeFailed = false;
};

} // namespace Velmora::WorkflowCore
