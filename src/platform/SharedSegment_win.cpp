// SPDX-License-Identifier: MIT
#include "platform/SharedSegment.h"

#include <QSharedMemory>

#include <algorithm>
#include <cstring>

namespace Velmora::WorkflowCore::Platform {

// A named section of the session, through Qt; the system lock it carries is released by the
// system when its holder dies.

struct SharedSegment::Data
{
    QSharedMemory memory;
    int size = 0;
    bool writable = false;
};

SharedSegment::SharedSegment(const QString& key, int size) : d(std::make_unique<Data>())
{
    d->memory.setKey(key);
    d->size = size;
}

SharedSegment::~SharedSegment()
{
    Detach();
}

bool SharedSegment::Attach(Access access)
{
    Detach();
    const bool readWrite = access == Access::ReadWrite;
    if (!d->memory.attach(readWrite ? QSharedMemory::ReadWrite : QSharedMemory::ReadOnly))
        return false;
    if (d->memory.size() < d->size)
    {
        d->memory.detach();
        return false;
    }
    d->writable = readWrite;
    return true;
}

bool SharedSegment::Create()
{
    Detach();
    if (d->memory.create(d->size, QSharedMemory::ReadWrite))
    {
        d->writable = true;
        if (d->memory.lock())
        {
            std::memset(d->memory.data(), 0, static_cast<size_t>(d->size));
            d->memory.unlock();
        }
        return true;
    }
    return Attach(Access::ReadWrite);
}

void SharedSegment::Detach()
{
    if (d->memory.isAttached())
        d->memory.detach();
    d->writable = false;
}

bool SharedSegment::IsAttached() const
{
    return d->memory.isAttached();
}

bool SharedSegment::IsWritable() const
{
    return d->memory.isAttached() && d->writable;
}

int SharedSegment::Size() const
{
    return d->size;
}

bool SharedSegment::Lock()
{
    return d->memory.isAttached() && d->memory.lock();
}

void SharedSegment::Unlock()
{
    if (d->memory.isAttached())
        d->memory.unlock();
}

bool SharedSegment::CopyOut(char* buffer) const
{
    if (!d->memory.isAttached())
        return false;
    std::memcpy(buffer, d->memory.constData(), static_cast<size_t>(d->size));
    return true;
}

bool SharedSegment::CopyIn(const char* data, int size)
{
    if (!IsWritable() || size < 0)
        return false;
    std::memcpy(d->memory.data(), data, static_cast<size_t>(std::min(size, d->size)));
    return true;
}

} // namespace Velmora::WorkflowCore::Platform
