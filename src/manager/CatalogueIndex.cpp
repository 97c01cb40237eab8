// SPDX-License-Identifier: MIT
#include "manager/CatalogueIndex.h"

#include "util/FileUtil.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QSaveFile>
#include <QSet>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Velmora::WorkflowCore {

namespace {

// The index file starts with the magic, the format version and a mark of the byte order it was
// written in. Blocks follow, each its length, a digest of its bytes and the bytes: first the
// catalogue's key, the time its scan began and the number of files, then one block per file.
// A block is checked as it is read, so the file is read through one small buffer that is
// reused: a catalogue of thousands of files costs the copy of its bytes, not the memory to hold
// them all at once.
constexpr char kMagic[8] = {'V', 'M', 'W', 'F', 'C', 'I', 'D', 'X'};
constexpr quint32 kByteOrderMark = 0x01020304;
constexpr qsizetype kHeaderSize = 8 + 4 + 4;
constexpr qsizetype kBlockHeaderSize = 4 + 8;
// No block of a real catalogue comes near this; a length beyond it is damage.
constexpr quint32 kLargestBlock = 256u << 20;
// A file changed less than this before the scan that read it may have changed again within the
// same tick of a coarse file-system clock (a second, two on some file systems) after the read:
// its entry is not trusted, and the file is read again until it is older.
constexpr qint64 kRacyWindowNs = 2'000'000'000LL;
constexpr quint32 kNullText = 0xFFFFFFFFu;
// Set in a text's length when the text is kept one byte per character: most texts of a
// catalogue are plain Latin, and the index is then half the size.
constexpr quint32 kLatin1Text = 0x80000000u;

bool IsLatin1(const QString& text)
{
    for (const QChar c : text)
    {
        if (c.unicode() > 0xFF)
            return false;
    }
    return true;
}

// A fast digest of the payload, to tell an intact index from a damaged or truncated one. It is
// no defence against a forger, and need not be: the file is the user's own cache.
quint64 Digest(const char* data, qsizetype size)
{
    quint64 hash = 0x9E3779B97F4A7C15ULL ^ static_cast<quint64>(size);
    qsizetype at = 0;
    for (; at + 8 <= size; at += 8)
    {
        quint64 word;
        std::memcpy(&word, data + at, 8);
        hash = (hash ^ word) * 0xFF51AFD7ED558CCDULL;
        hash ^= hash >> 29;
    }
    for (; at < size; ++at)
        hash = (hash ^ static_cast<unsigned char>(data[at])) * 0xC4CEB9FE1A85EC53ULL;
    hash ^= hash >> 32;
    return hash;
}

class Writer
{
public:
    template <typename T> void Number(T value)
    {
        m_bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void Flag(bool value) { m_bytes.append(value ? '\1' : '\0'); }
    void Text(const QString& text)
    {
        if (text.isNull())
        {
            Number<quint32>(kNullText);
            return;
        }
        if (IsLatin1(text))
        {
            Number<quint32>(static_cast<quint32>(text.size()) | kLatin1Text);
            const qsizetype at = m_bytes.size();
            m_bytes.resize(at + text.size());
            char* to = m_bytes.data() + at;
            for (const QChar c : text)
                *to++ = static_cast<char>(c.unicode());
            return;
        }
        Number<quint32>(static_cast<quint32>(text.size()));
        m_bytes.append(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
    }
    void Identity(const Platform::FileIdentity& identity)
    {
        Number<quint64>(identity.device);
        Number<quint64>(identity.inode);
        Number<qint64>(identity.size);
        Number<qint64>(identity.modifiedNs);
        Number<qint64>(identity.changedNs);
    }
    void File(const ScannedFile& file)
    {
        Number<quint8>(file.result == StreamReadResult::Read ? 1 : 0);
        if (file.result != StreamReadResult::Read)
            return;
        Flag(file.data.hasXlfFile);
        Text(file.data.xlfFile);
        Number<quint32>(static_cast<quint32>(file.data.elements.size()));
        for (const WorkflowElementData& element : file.data.elements)
        {
            Text(element.tag);
            quint32 present = 0;
            for (int i = 0; i < WorkflowAttributeCount; ++i)
                present |= element.present[i] ? (1u << i) : 0u;
            Number<quint32>(present);
            for (int i = 0; i < WorkflowAttributeCount; ++i)
            {
                // An absent attribute reads as a null text: nothing of it need be kept.
                if (element.present[i])
                    Text(element.values[i]);
            }
            Flag(element.hasIntroduction);
            Text(element.introduction);
            Flag(element.hasSettings);
            Text(element.settings);
        }
    }
    const QByteArray& Bytes() const { return m_bytes; }
    // Empties the writer for the next block; what it holds stays allocated.
    void Clear() { m_bytes.resize(0); }

private:
    QByteArray m_bytes;
};

// Reads what Writer wrote; any read past the end, or any value no writer writes, sets failed
// and every later read gives nothing.
class Reader
{
public:
    Reader(const char* data, qsizetype size) : m_data(data), m_size(size) {}
    bool Failed() const { return m_failed; }
    bool AtEnd() const { return m_at == m_size; }

    template <typename T> T Number()
    {
        T value{};
        if (!Take(sizeof value))
            return value;
        std::memcpy(&value, m_data + m_at - sizeof value, sizeof value);
        return value;
    }
    bool Flag()
    {
        const auto value = Number<quint8>();
        if (value > 1)
            m_failed = true;
        return value == 1;
    }
    QString Text()
    {
        auto length = Number<quint32>();
        if (m_failed || length == kNullText)
            return QString();
        if (length & kLatin1Text)
        {
            length &= ~kLatin1Text;
            if (!Take(qsizetype(length)))
                return QString();
            return QString::fromLatin1(m_data + m_at - qsizetype(length), qsizetype(length));
        }
        if (!Take(qsizetype(length) * 2))
            return QString();
        QString text(static_cast<qsizetype>(length), Qt::Uninitialized);
        std::memcpy(text.data(), m_data + m_at - qsizetype(length) * 2, qsizetype(length) * 2);
        return text;
    }
    Platform::FileIdentity Identity()
    {
        Platform::FileIdentity identity;
        identity.exists = true;
        identity.device = Number<quint64>();
        identity.inode = Number<quint64>();
        identity.size = Number<qint64>();
        identity.modifiedNs = Number<qint64>();
        identity.changedNs = Number<qint64>();
        return identity;
    }
    ScannedFilePtr File()
    {
        auto file = std::make_shared<ScannedFile>();
        const auto read = Number<quint8>();
        if (read > 1)
            m_failed = true;
        if (read != 1)
            return file;
        file->result = StreamReadResult::Read;
        file->data.hasXlfFile = Flag();
        file->data.xlfFile = Text();
        const auto count = Number<quint32>();
        // Every element takes some bytes: a count the rest of the file cannot hold is damage.
        if (count > quint64(m_size - m_at))
            m_failed = true;
        for (quint32 i = 0; i < count && !m_failed; ++i)
        {
            WorkflowElementData element;
            element.tag = Text();
            const auto present = Number<quint32>();
            if (present >> WorkflowAttributeCount)
                m_failed = true;
            for (int attribute = 0; attribute < WorkflowAttributeCount; ++attribute)
            {
                element.present[attribute] = (present >> attribute) & 1u;
                if (element.present[attribute])
                    element.values[attribute] = Text();
            }
            element.hasIntroduction = Flag();
            element.introduction = Text();
            element.hasSettings = Flag();
            element.settings = Text();
            file->data.elements.append(std::move(element));
        }
        return file;
    }

private:
    bool Take(qsizetype count)
    {
        if (m_failed || count > m_size - m_at)
        {
            m_failed = true;
            return false;
        }
        m_at += count;
        return true;
    }

    const char* m_data;
    qsizetype m_size;
    qsizetype m_at = 0;
    bool m_failed = false;
};

} // namespace

CatalogueIndex::CatalogueIndex(QString file, QString key, qint64 scanStartedNs)
    : m_file(std::move(file)), m_key(std::move(key)), m_scanStartedNs(scanStartedNs)
{
}

QString CatalogueIndex::KeyFor(const QStringList& folders, const QString& locale)
{
    // A folder name cannot hold a line break on any system the catalogue reads from a list of
    // ";"-separated paths, and the locale is last: the text is unambiguous.
    return folders.join(QLatin1Char('\n')) + QStringLiteral("\nlocale=") + locale;
}

QString CatalogueIndex::FileFor(const QStringList& folders, const QString& locale)
{
    const QString cache = Platform::CacheFolder();
    if (cache.isEmpty())
        return QString();
    const QByteArray digest =
        QCryptographicHash::hash(KeyFor(folders, locale).toUtf8(), QCryptographicHash::Sha1).toHex();
    return QStringLiteral("%1/%2/WorkflowCatalogue/%3.index")
        .arg(cache, Platform::MakerName(), QString::fromLatin1(digest));
}

namespace {

constexpr quint8 kEntryBlock = 'E';
constexpr quint8 kEndBlock = 'Z';

// The blocks of an index file, read in order through a buffer that is reused.
class BlockReader
{
public:
    explicit BlockReader(QIODevice& device) : m_device(device) {}

    // Where in the file the next block starts.
    qint64 Offset() const { return m_base + m_at; }
    // The next block's bytes when they are all there and match their digest; null otherwise.
    const char* Next(qsizetype& size)
    {
        if (!Fill(kBlockHeaderSize))
            return nullptr;
        quint32 length;
        quint64 digest;
        std::memcpy(&length, m_buffer.constData() + m_at, 4);
        std::memcpy(&digest, m_buffer.constData() + m_at + 4, 8);
        if (length > kLargestBlock || !Fill(kBlockHeaderSize + length))
            return nullptr;
        const char* block = m_buffer.constData() + m_at + kBlockHeaderSize;
        m_at += kBlockHeaderSize + length;
        if (Digest(block, length) != digest)
            return nullptr;
        size = length;
        return block;
    }
    bool AtEnd() { return !Fill(1); }

private:
    // Makes count unread bytes available at m_at; false at the end of the file.
    bool Fill(qsizetype count)
    {
        if (m_end - m_at >= count)
            return true;
        const qsizetype kept = m_end - m_at;
        std::memmove(m_buffer.data(), m_buffer.constData() + m_at, static_cast<size_t>(kept));
        m_base += m_at;
        m_at = 0;
        m_end = kept;
        if (m_buffer.size() < count)
            m_buffer.resize(std::max<qsizetype>(count, 2 * m_buffer.size()));
        while (m_end < count)
        {
            const qint64 read = m_device.read(m_buffer.data() + m_end, m_buffer.size() - m_end);
            if (read <= 0)
                return false;
            m_end += read;
        }
        return true;
    }

    QIODevice& m_device;
    QByteArray m_buffer = QByteArray(1 << 20, Qt::Uninitialized);
    qint64 m_base = 0;
    qsizetype m_at = 0;
    qsizetype m_end = 0;
};

void AppendBlock(QByteArray& out, const QByteArray& block)
{
    const auto length = static_cast<quint32>(block.size());
    const quint64 digest = Digest(block.constData(), block.size());
    out.append(reinterpret_cast<const char*>(&length), 4);
    out.append(reinterpret_cast<const char*>(&digest), 8);
    out.append(block);
}

} // namespace

// The new index while it is written: under the lock, into a file that replaces the old one
// only when it is complete.
struct CatalogueIndex::Writing
{
    explicit Writing(const QString& file) : lock(file + QStringLiteral(".lock")), output(file) {}

    // Sends what gathered to the file once there is more than above.
    void Flush(qsizetype above)
    {
        if (out.size() <= above)
            return;
        written = written && output.write(out) == out.size();
        out.resize(0);
    }

    QLockFile lock;
    QSaveFile output;
    QByteArray out;
    Writer block;
    quint32 count = 0;
    bool written = true;
};

CatalogueIndex::~CatalogueIndex()
{
    if (m_writing)
        m_writing->output.cancelWriting();
}

namespace {

// What the loaded entries take of the heap, in quarters of a byte per byte of the index: about
// what the benchmark's index of 10,000 files takes. Every fault the load takes itself delays the
// whole start, so this errs on the high side; what is not used goes back when the load is over.
constexpr size_t kLoadedQuartersPerIndexByte = 10;

} // namespace

bool CatalogueIndex::Load(bool reserveMemory)
{
    m_loaded.clear();
    m_source.reset();
    m_loadedScanStartedNs = 0;
    if (m_file.isEmpty() || !IsRegularFile(m_file))
        return false;
    auto source = std::make_unique<QFile>(m_file);
    if (!source->open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return false;
    char header[kHeaderSize];
    if (source->read(header, kHeaderSize) != kHeaderSize)
        return false;
    Reader fixed(header, kHeaderSize);
    char magic[sizeof kMagic];
    for (char& c : magic)
        c = static_cast<char>(fixed.Number<quint8>());
    const auto version = fixed.Number<quint32>();
    const auto byteOrder = fixed.Number<quint32>();
    if (std::memcmp(magic, kMagic, sizeof kMagic) != 0 || version != kFormatVersion ||
        byteOrder != kByteOrderMark)
        return false;

    BlockReader blocks(*source);
    qsizetype size = 0;
    const char* block = blocks.Next(size);
    if (!block)
        return false;
    Reader head(block, size);
    if (head.Text() != m_key)
        return false;
    const auto scanStarted = head.Number<qint64>();
    if (head.Failed() || !head.AtEnd())
        return false;
    // The entries of an index of this catalogue are about to fill this thread's heap: their texts
    // widen from UTF-8 to UTF-16, and each text, list and file has a header of its own.
    const Platform::HeapReservation reservation(
        reserveMemory ? size_t(source->size()) * kLoadedQuartersPerIndexByte / 4 : 0);
    QHash<QString, Entry> loaded;
    for (;;)
    {
        const qint64 offset = kHeaderSize + blocks.Offset();
        block = blocks.Next(size);
        if (!block)
            return false;
        Reader reader(block, size);
        const auto kind = reader.Number<quint8>();
        if (kind == kEndBlock)
        {
            const auto count = reader.Number<quint32>();
            if (reader.Failed() || !reader.AtEnd() || count != quint64(loaded.size()) || !blocks.AtEnd())
                return false;
            break;
        }
        if (kind != kEntryBlock)
            return false;
        const QString path = reader.Text();
        Entry entry;
        entry.identity = reader.Identity();
        entry.file = reader.File();
        if (reader.Failed() || !reader.AtEnd() || loaded.contains(path))
            return false;
        entry.offset = offset;
        entry.length = kHeaderSize + blocks.Offset() - offset;
        loaded.insert(path, std::move(entry));
    }
    m_loaded = std::move(loaded);
    // A later start enters about every file the index holds.
    m_entered.reserve(m_loaded.size());
    m_loadedScanStartedNs = scanStarted;
    m_source = std::move(source);
    return true;
}

QByteArray CatalogueIndex::LoadedBlock(const Entry& entry) const
{
    QByteArray bytes;
    if (!m_source || !m_source->seek(entry.offset))
        return bytes;
    bytes.resize(entry.length);
    if (m_source->read(bytes.data(), entry.length) != entry.length)
        bytes.clear();
    return bytes;
}

ScannedFilePtr CatalogueIndex::Take(const QString& path, const Platform::FileIdentity& identity)
{
    const auto found = m_loaded.find(path);
    if (found == m_loaded.end() || found->identity != identity)
        return nullptr;
    if (identity.modifiedNs > m_loadedScanStartedNs - kRacyWindowNs)
        return nullptr;
    if (found->file)
    {
        ScannedFilePtr file = std::move(found->file);
        found->taken = file;
        return file;
    }
    // Taken before (a folder listed twice): the same data while it lives, else read again
    // from its block.
    if (ScannedFilePtr file = found->taken.lock())
        return file;
    const QByteArray block = LoadedBlock(*found);
    if (block.size() < kBlockHeaderSize)
        return nullptr;
    Reader reader(block.constData() + kBlockHeaderSize, block.size() - kBlockHeaderSize);
    reader.Number<quint8>();
    reader.Text();
    reader.Identity();
    ScannedFilePtr file = reader.File();
    if (reader.Failed())
        return nullptr;
    found->taken = file;
    return file;
}

namespace {

// The start of every index file: the fixed part, then the block that names the catalogue.
void AppendStart(QByteArray& out, Writer& block, const QString& key, qint64 scanStartedNs)
{
    block.Clear();
    for (char c : kMagic)
        block.Number<quint8>(static_cast<quint8>(c));
    block.Number<quint32>(CatalogueIndex::kFormatVersion);
    block.Number<quint32>(kByteOrderMark);
    out.append(block.Bytes());
    block.Clear();
    block.Text(key);
    block.Number<qint64>(scanStartedNs);
    AppendBlock(out, block.Bytes());
}

} // namespace

QByteArray CatalogueIndex::Framed(const QString& key, qint64 scanStartedNs, const QList<QByteArray>& payloads)
{
    QByteArray bytes;
    Writer block;
    AppendStart(bytes, block, key, scanStartedNs);
    for (const QByteArray& payload : payloads)
        AppendBlock(bytes, payload);
    return bytes;
}

bool CatalogueIndex::StartWriting()
{
    if (m_writing)
        return true;
    if (m_writeFailed || m_file.isEmpty() || !MakePrivateFolders(QFileInfo(m_file).absolutePath()))
    {
        m_writeFailed = true;
        return false;
    }
    auto writing = std::make_unique<Writing>(m_file);
    // Two programs that scan the same catalogue at once write one after the other; one that
    // finds the lock taken leaves the writing to the other.
    writing->lock.setStaleLockTime(30000);
    if (!writing->lock.tryLock(0) || !writing->output.open(QIODevice::WriteOnly))
    {
        m_writeFailed = true;
        return false;
    }
    writing->output.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    writing->out.reserve(2 << 20);
    AppendStart(writing->out, writing->block, m_key, m_scanStartedNs);
    m_writing = std::move(writing);
    // What was entered unchanged so far goes in as it stood in the old index.
    for (const QString& path : std::as_const(m_unchangedEntered))
    {
        const QByteArray copied = LoadedBlock(m_loaded.value(path));
        m_writing->written = m_writing->written && !copied.isEmpty();
        m_writing->out.append(copied);
        ++m_writing->count;
        m_writing->Flush(1 << 20);
    }
    m_unchangedEntered.clear();
    return true;
}

void CatalogueIndex::Enter(const QString& path, const Platform::FileIdentity& identity,
                           const ScannedFilePtr& file, bool fromIndex)
{
    if (!file || m_entered.contains(path))
        return;
    m_entered.insert(path);
    if (fromIndex && !m_writing)
    {
        m_unchangedEntered.append(path);
        return;
    }
    if (!StartWriting())
        return;
    if (fromIndex)
    {
        const QByteArray copied = LoadedBlock(m_loaded.value(path));
        m_writing->written = m_writing->written && !copied.isEmpty();
        m_writing->out.append(copied);
    }
    else
    {
        Writer& block = m_writing->block;
        block.Clear();
        block.Number<quint8>(kEntryBlock);
        block.Text(path);
        block.Identity(identity);
        block.File(*file);
        AppendBlock(m_writing->out, block.Bytes());
    }
    ++m_writing->count;
    m_writing->Flush(1 << 20);
}

bool CatalogueIndex::Finish()
{
    // Nothing differed and nothing is gone: the old index stands.
    if (!m_writing && !m_writeFailed && m_source && m_entered.size() == m_loaded.size())
        return true;
    if (!StartWriting())
        return false;
    std::unique_ptr<Writing> writing = std::move(m_writing);
    Writer& block = writing->block;
    block.Clear();
    block.Number<quint8>(kEndBlock);
    block.Number<quint32>(writing->count);
    AppendBlock(writing->out, block.Bytes());
    writing->Flush(0);
    if (!writing->written)
    {
        writing->output.cancelWriting();
        return false;
    }
    return writing->output.commit();
}

} // namespace Velmora::WorkflowCore
