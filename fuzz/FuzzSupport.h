#pragma once

// What every fuzz target shares: a private folder for the files it feeds to the readers, a way
// to put an input there, and the check that turns a broken property into a crash libFuzzer keeps.

#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#define Check(condition) ::VmWorkflowFuzz::CheckAt((condition), #condition, __FILE__, __LINE__)

namespace VmWorkflowFuzz {

// A broken property names its place before it aborts, so that a finding says which check failed.
inline void CheckAt(bool condition, const char* expression, const char* file, int line)
{
    if (condition)
        return;
    std::fprintf(stderr, "%s:%d: property broken: %s\n", file, line, expression);
    std::abort();
}

// One folder per fuzzing process, removed when it exits.
inline const QString& Folder()
{
    static QTemporaryDir dir(QDir::tempPath() + QStringLiteral("/vmwf-fuzz-XXXXXX"));
    static const QString path = dir.path();
    Check(dir.isValid());
    return path;
}

// Writes the bytes to path through a new file renamed over the old one, so that every input is a
// file of its own (a new inode) and no cache keyed on a file's identity can take it for the last.
inline bool PutFile(const QString& path, const QByteArray& bytes)
{
    const QString spare = path + QStringLiteral(".new");
    {
        QFile file(spare);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return false;
        if (file.write(bytes) != bytes.size())
            return false;
        // Inputs follow each other faster than the clock's tick, and a freed inode number comes
        // back at once: without a time of its own, an input of the same length would look like
        // the file before it to the readers' caches, which know a file by size, time and inode.
        static qint64 tick = 0;
        if (!file.setFileTime(QDateTime::fromMSecsSinceEpoch(1000000000000LL + ++tick, Qt::UTC),
                              QFileDevice::FileModificationTime))
            return false;
    }
    return ::rename(QFile::encodeName(spare).constData(), QFile::encodeName(path).constData()) == 0;
}

inline QByteArray Bytes(const uint8_t* data, size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

} // namespace VmWorkflowFuzz
