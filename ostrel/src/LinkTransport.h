// SPDX-License-Identifier: MIT
#pragma once

#include <QDeadlineTimer>
#include <QObject>

class QLocalSocket;

namespace Velmora::OstrelAdapter {

// The byte stream under one link. Reading takes what is there without waiting, writing hands bytes
// over at once when nothing waits before them and queues the rest in order, and the end of the
// stream is told once.
class LinkTransport : public QObject
{
    Q_OBJECT
public:
    // Takes a connected socket over; where the system allows, its descriptor is served directly,
    // which spares a system call and a few hops per message. Null, with the socket closed and
    // gone, when the system has no descriptor to spare for it.
    static LinkTransport* Adopt(QLocalSocket* socket, QObject* parent);
    // Serves the socket through the socket object itself.
    static LinkTransport* Wrap(QLocalSocket* socket, QObject* parent);

    virtual bool IsConnected() const = 0;
    // Reads at most size bytes of what has arrived: the count, 0 when nothing is there now, -1 when
    // the stream has ended (it is then closed, and Ended is not told).
    virtual qint64 Read(char* data, qint64 size) = 0;
    // Whether the stream tells ReadyRead while a read is going on: a handler that spins the event
    // loop must not make it spin on bytes that the outer read takes later.
    virtual void SetReadWatch(bool on) = 0;
    // Writes or queues all of data; false when the stream is not connected. A stream found broken
    // on the way is closed and tells Ended.
    virtual bool Write(const QByteArray& data) = 0;
    virtual qint64 BytesToWrite() const = 0;
    // Waits until what is queued has left or the deadline has passed.
    virtual void Drain(const QDeadlineTimer& deadline) = 0;
    // Closes at once, dropping what is queued; tells nothing.
    virtual void Abort() = 0;
    virtual qintptr Descriptor() const = 0;

signals:
    void ReadyRead();
    void BytesWritten();
    void Ended();

protected:
    using QObject::QObject;
};

} // namespace Velmora::OstrelAdapter
