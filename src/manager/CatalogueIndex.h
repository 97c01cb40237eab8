// SPDX-License-Identifier: MIT
#pragma once

#include "platform/Platform.h"
#include "util/XmlStreamReading.h"

#include <QFile>
#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

#include <memory>

namespace Velmora::WorkflowCore {

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
    // entries will take is made ready in one go first: worth it in a process whose heap has not
    // held a catalogue yet, wasted in one that has.
    bool Load(bool reserveMemory = true);
    // What path gave the last scan, when the file still has the identity it had then and was
    // last changed well before that scan began: a change made within the same tick of the
    // file system's clock as the read could not be told from the file read. Null otherwise.
    // The index keeps no hold of what it hands out, so that the catalogue's records are the
    // only holders of their texts.
    ScannedFilePtr Take(const QString& path, const Platform::FileIdentity& identity);
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

    // An index file of the catalogue key whose blocks after the first are the given payloads,
    // each framed and digested as a scan frames its blocks: for tests and fuzzing that must
    // reach past the digests to the entries' own bytes.
    static QByteArray Framed(const QString& key, qint64 scanStartedNs, const QList<QByteArray>& payloads);

    // The layout of the file's fixed start, for tests that damage an index on purpose: eight
    // bytes of magic, then the format version as a 32-bit number.
    static constexpr int kVersionOffset = 8;
    static constexpr quint32 kFormatVersion = 2;

private:
    struct Entry
    {
        Platform::FileIdentity identity;
        // What was loaded, until it is taken; then only the block it came from.
        ScannedFilePtr file;
        std::weak_ptr<const ScannedFile> taken;
        qint64 offset = 0;
        qint64 length = 0;
    };
    struct Writing;

    bool StartWriting();
    QByteArray LoadedBlock(const Entry& entry) const;

    QString m_file;
    QString m_key;
    qint64 m_scanStartedNs = 0;
    qint64 m_loadedScanStartedNs = 0;
    QHash<QString, Entry> m_loaded;
    // The loaded index stays open: its blocks are copied into the new one as they stand.
    std::unique_ptr<QFile> m_source;
    QSet<QString> m_entered;
    // Files entered unchanged before anything differed: copied once writing starts.
    QStringList m_unchangedEntered;
    std::unique_ptr<Writing> m_writing;
    bool m_writeFailed = false;
};

} // namespace Velmora::WorkflowCore
