// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

#include <memory>

class QThreadPool;

namespace Velmora::WorkflowCore {

// The per-user settings of workflows, one element per workflow Id (exact case), one attribute
// per setting.
QString WorkflowSettingsFolder();
QString WorkflowSettingsFile();

// The settings file at file as reads see it: for each Id, the attributes of the first element
// that carries it. False when the file cannot be read. fromDocument reads it as a whole document,
// the slower way the streaming read is checked against.
bool ReadWorkflowSettingsFile(const QString& file, QHash<QString, QHash<QString, QString>>& settings,
                              bool fromDocument = false);

// The "Workflow" elements of a plain settings file's bytes, in order, each packed as its
// attribute names and values in turn, each ended by a null character. ReadPlainSettings reads
// through the XML reader any file that can be written again from its elements alone;
// ReadSettingsAsWritten reads, byte by byte and many times faster, only the very layout the
// settings writer writes, and what it reads the other reads the same. False when the bytes are
// no such file.
bool ReadPlainSettings(const QByteArray& bytes, QList<QString>& elements);
bool ReadSettingsAsWritten(const QByteArray& bytes, QList<QString>& elements);

// The user's settings file as one owner sees it: what was last read (kept while the file keeps
// its identity, so repeated reads cost a stat), with the store's own writes folded in. The
// manager owns one; a record that belongs to no manager uses a short-lived one of its own.
// Outside a read session the folder and file are looked up on every read, so a change of the
// file or of the user's data folder is followed.
class WorkflowSettingsStore
{
public:
    WorkflowSettingsStore();
    ~WorkflowSettingsStore();
    WorkflowSettingsStore(const WorkflowSettingsStore&) = delete;
    WorkflowSettingsStore& operator=(const WorkflowSettingsStore&) = delete;

    // Empty when anything is missing.
    QString Read(const QString& workflowId, const QString& key);
    // Creates the folder, the file and the workflow's element as needed; a damaged file is never
    // overwritten.
    void Write(const QString& workflowId, const QString& key, const QString& value);

    // While one lives, writes gather in memory and reach the file once, when the last batch of
    // the store ends: destroying a catalogue of thousands of templates rewrites the file once,
    // not once per template, and not at all when the file already holds every value written.
    // The file ends up exactly as the single writes would have left it. A batch looks the file
    // up at its first write and sends all its writes there. Reads during a batch see its writes.
    class Batch
    {
    public:
        explicit Batch(WorkflowSettingsStore& store);
        ~Batch();
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

    private:
        WorkflowSettingsStore& m_store;
    };

    // While one lives, the store looks the file up and checks its identity once, at the first
    // read, and then answers every read from what it holds, without asking the file system
    // again: a scan of thousands of templates costs one stat, not one per template. Reads in a
    // session therefore see the file as it was at the session's first read, together with every
    // write made through this store since; a change made to the file from outside after that
    // first read is seen by the first read after the last session of the store ends. Sessions
    // nest.
    class ReadSession
    {
    public:
        explicit ReadSession(WorkflowSettingsStore& store);
        ~ReadSession();
        ReadSession(const ReadSession&) = delete;
        ReadSession& operator=(const ReadSession&) = delete;

    private:
        WorkflowSettingsStore& m_store;
    };

    // Reads the settings file on a thread of pool, while the caller goes on: the next read of
    // the store takes what was read there, once it has checked that the file still has the
    // identity it had then (else it reads the file itself). A large scan starts this as it
    // starts, so that its first template does not wait for thousands of entries to be read.
    void ReadAhead(QThreadPool& pool);

private:
    struct ReadCache;
    struct Ahead;
    // What a read ahead of the file gave, once it is done; null when none was started for file
    // or it could not read the file.
    std::unique_ptr<ReadCache> TakeReadAhead(const QString& file);
    struct PendingWrites;
    struct Session;
    bool LoadCache(const QString& file);
    void ForgetCache();
    void CommitPending();

    std::unique_ptr<ReadCache> m_cache;
    std::unique_ptr<PendingWrites> m_pending;
    std::unique_ptr<Session> m_session;
    std::unique_ptr<Ahead> m_ahead;
};

} // namespace Velmora::WorkflowCore
