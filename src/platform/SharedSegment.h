// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <memory>

namespace Velmora::WorkflowCore::Platform {

// A named block of memory of fixed size that every process of the user reaches under the same
// key, with one lock across processes. Bytes are copied in and out only while the lock is held.
// A process that dies holding the lock never leaves it held.
class SharedSegment
{
public:
    enum class Access
    {
        ReadOnly,
        ReadWrite
    };

    SharedSegment(const QString& key, int size);
    ~SharedSegment();
    SharedSegment(const SharedSegment&) = delete;
    SharedSegment& operator=(const SharedSegment&) = delete;

    // Attaches to the segment another process (or this one) made; false when there is none or it
    // is not one of ours (wrong kind, wrong size, someone else's).
    bool Attach(Access access);
    // Makes the segment, zero-filled, and attaches read-write; when another process made it first,
    // attaches to that one.
    bool Create();
    void Detach();

    bool IsAttached() const;
    bool IsWritable() const;
    int Size() const;

    // Waits a bounded time for the lock; false when it cannot be had.
    bool Lock();
    void Unlock();

    // Both expect the lock held. CopyOut fills exactly Size() bytes; CopyIn writes at most Size().
    bool CopyOut(char* buffer) const;
    bool CopyIn(const char* data, int size);

private:
    struct Data;
    std::unique_ptr<Data> d;
};

} // namespace Velmora::WorkflowCore::Platform
