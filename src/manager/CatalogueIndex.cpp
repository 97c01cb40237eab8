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
#include <tuple>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
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
// Set in a markup's length when the markup is kept in the block that follows its file's entry,
// with the other long markup of that file, rather than in the entry: a start reads the entries
// and leaves that block where it is until a record's markup is asked for. No block is long
// enough for a length to reach this bit.
constexpr quint32 kDeferredText = 0x40000000u;
constexpr quint8 kEntryBlock = 'E';
constexpr quint8 kMarkupBlock = 'M';
constexpr quint8 kEndBlock = 'Z';

// A fast digest of the payload, to tell an intact index from a damaged or truncated one. It is
// no defence against a forger, and need not be: the file is the user's own cache.
//
// Four lanes take the words in turn, each mixing only its own: the products of one lane do not
// wait for those of the others, and an index of many megabytes is checked at the speed it is
// read. Every step is a bijection of its lane's state, so a change to any one word always
// changes the digest.
constexpr quint64 kDigestMultiplier = 0xFF51AFD7ED558CCDULL;

inline quint64 MixWord(quint64 lane, quint64 word)
{
    lane = (lane ^ word) * kDigestMultiplier;
    return lane ^ (lane >> 29);
}

quint64 Digest(const char* data, qsizetype size)
{
    quint64 lanes[4] = {0x9E3779B97F4A7C15ULL ^ static_cast<quint64>(size), 0xC2B2AE3D27D4EB4FULL,
                        0x165667B19E3779F9ULL, 0x27D4EB2F165667C5ULL};
    qsizetype at = 0;
    for (; at + 32 <= size; at += 32)
    {
        quint64 words[4];
        std::memcpy(words, data + at, sizeof words);
        for (int lane = 0; lane < 4; ++lane)
            lanes[lane] = MixWord(lanes[lane], words[lane]);
    }
    quint64 hash = lanes[0];
    for (int lane = 1; lane < 4; ++lane)
        hash = MixWord(hash, lanes[lane]);
    for (; at + 8 <= size; at += 8)
    {
        quint64 word;
        std::memcpy(&word, data + at, 8);
        hash = MixWord(hash, word);
    }
    for (; at < size; ++at)
        hash = (hash ^ static_cast<unsigned char>(data[at])) * 0xC4CEB9FE1A85EC53ULL;
    hash ^= hash >> 32;
    return hash;
}

constexpr qsizetype RoundUp(qsizetype count, qsizetype step)
{
    return (count + step - 1) / step * step;
}

// Latin-1 bytes as UTF-16: most of an index's bytes are widened so, sixteen at a time where the
// processor can. With overshoot, the last sixteen are widened whole, reading up to fifteen bytes
// past count and writing up to fifteen units past it: only for a source and a destination known
// to have that room, where whatever lands past the end is written over or never read.
constexpr qsizetype kWidenStep = 16;

void WidenLatin1(char16_t* to, const char* from, qsizetype count, bool overshoot)
{
    qsizetype i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    const qsizetype whole = overshoot ? count : count - kWidenStep + 1;
    for (; i < whole; i += kWidenStep)
    {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i), _mm_unpacklo_epi8(bytes, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i + 8), _mm_unpackhi_epi8(bytes, zero));
    }
#else
    Q_UNUSED(overshoot);
#endif
    for (; i < count; ++i)
        to[i] = static_cast<unsigned char>(from[i]);
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
        if (CompactText::FitsInLatin1(text))
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
    // Written as the same text in UTF-16 would be: a reader tells the forms apart by the bytes.
    // Long markup in bytes goes to the file's markup block, and only its length to the entry.
    void Markup(const CompactText& text)
    {
        if (!text.IsNarrow())
        {
            Text(text.Wide());
            return;
        }
        if (text.size() >= CatalogueIndex::kDeferredMarkupMinimum)
        {
            Number<quint32>(static_cast<quint32>(text.size()) | kLatin1Text | kDeferredText);
            if (m_markup.isEmpty())
                m_markup.append(char(kMarkupBlock));
            m_markup.append(text.Latin1());
            return;
        }
        Number<quint32>(static_cast<quint32>(text.size()) | kLatin1Text);
        m_bytes.append(text.Latin1());
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
        Number<quint32>(BlockUnits(file.data));
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
            Markup(element.settings);
        }
    }
    // The UTF-16 units a reader's block takes for the file's texts: every text but a null one and
    // markup kept in bytes, each with the zero that ends it. Kept in the entry, so that a reader
    // makes the block before it reads the texts, in one pass.
    static quint32 BlockUnits(const WorkflowFileData& data)
    {
        qsizetype units = 0;
        const auto count = [&units](const QString& text) {
            if (!text.isNull())
                units += text.size() + 1;
        };
        count(data.xlfFile);
        for (const WorkflowElementData& element : data.elements)
        {
            count(element.tag);
            for (int i = 0; i < WorkflowAttributeCount; ++i)
            {
                if (element.present[i])
                    count(element.values[i]);
            }
            count(element.introduction);
            if (!element.settings.IsNarrow())
                count(element.settings.Wide());
        }
        return static_cast<quint32>(units);
    }
    const QByteArray& Bytes() const { return m_bytes; }
    // The payload of the markup block that follows the entry File() wrote; empty when the entry
    // kept all its markup.
    const QByteArray& MarkupBlock() const { return m_markup; }
    // Empties the writer for the next block; what it holds stays allocated.
    void Clear()
    {
        m_bytes.resize(0);
        m_markup.resize(0);
    }

private:
    QByteArray m_bytes;
    QByteArray m_markup;
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
    QString Text() { return TextOf(Number<quint32>()); }
    // A text kept as a record keeps its markup: one written one byte per character is taken in
    // bytes as it stands, outside the file's block of UTF-16 texts. Markup kept in the file's
    // markup block is left null here, and its length given in deferredUnits.
    CompactText Markup(qsizetype& deferredUnits)
    {
        deferredUnits = 0;
        const auto length = Number<quint32>();
        if (m_failed || length == kNullText)
            return CompactText();
        if (length & kDeferredText)
        {
            // Only long markup in bytes is kept apart.
            deferredUnits = qsizetype(length & ~(kLatin1Text | kDeferredText));
            if (!(length & kLatin1Text) || deferredUnits < CatalogueIndex::kDeferredMarkupMinimum)
            {
                deferredUnits = 0;
                m_failed = true;
            }
            return CompactText();
        }
        if (!(length & kLatin1Text))
        {
            // A writer keeps markup that fits in bytes as bytes, so wide markup that fits is damage.
            // Told before a slice is made: CompactText would narrow the slice and drop it before
            // ReadFile() adds the slices' references, giving back the block's own.
            if (WideFitsInLatin1(length))
            {
                m_failed = true;
                return CompactText();
            }
            return CompactText(TextOf(length));
        }
        const qsizetype units = qsizetype(length & ~kLatin1Text);
        if (!Take(units))
            return CompactText();
        return CompactText::FromLatin1(QByteArray(m_data + m_at - units, units));
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
    // The texts of one file share one block: a file's entry takes one allocation for its texts
    // rather than one for each, and gives them back all at once when the last of them goes.
    // Markup kept in the file's markup block is left to the caller (Deferred()).
    std::shared_ptr<ScannedFile> File()
    {
        auto file = std::make_shared<ScannedFile>();
        m_deferred.clear();
        ReadFile(*file);
        return file;
    }
    // The markup of the file just read that its markup block holds, in order: for each, its
    // element and its length.
    const std::vector<std::pair<qsizetype, qsizetype>>& Deferred() const { return m_deferred; }

private:
    // Whether the next units of the entry, read as UTF-16, are a text that is not empty and
    // whose every character fits in one byte; false also when the entry is too short for them.
    bool WideFitsInLatin1(qsizetype units) const
    {
        if (units == 0 || units > (m_size - m_at) / 2)
            return false;
        // The entry's bytes need not be aligned for UTF-16: each unit's high byte is looked at.
        const char* const from = m_data + m_at;
        for (qsizetype i = 0; i < units; ++i)
        {
            char16_t unit;
            std::memcpy(&unit, from + 2 * i, 2);
            if (unit > 0xff)
                return false;
        }
        return true;
    }

    // The text whose length, with the mark of its form, was just read.
    QString TextOf(quint32 length)
    {
        if (m_failed || length == kNullText)
            return QString();
        const bool latin1 = length & kLatin1Text;
        length &= ~kLatin1Text;
        const qsizetype units = qsizetype(length);
        if (!Take(latin1 ? units : units * 2))
            return QString();
        const char* from = m_data + m_at - (latin1 ? units : units * 2);
        if (m_header)
        {
            // The entry said how many units its texts take: one that takes more is damage.
            if (units + 1 > m_blockEnd - m_blockAt)
            {
                m_failed = true;
                return QString();
            }
            // A slice of the file's block, ended by a zero as every text's data is. It takes no
            // reference of its own as it is made: ReadFile() adds those of all the slices at once.
            char16_t* const to = m_blockAt;
            m_blockAt += units + 1;
            ++m_slices;
            const bool readable = m_size - (from - m_data) >= RoundUp(units, kWidenStep);
            if (latin1)
                WidenLatin1(to, from, units, readable);
            else
                std::memcpy(to, from, size_t(units) * 2);
            to[units] = u'\0';
            return QString(QString::DataPointer(m_header, to, units));
        }
        QString text(units, Qt::Uninitialized);
        char16_t* const to = reinterpret_cast<char16_t*>(text.data());
        if (latin1)
            WidenLatin1(to, from, units, false);
        else
            std::memcpy(to, from, size_t(units) * 2);
        return text;
    }
    // Reads a file's entry into file.
    void ReadFile(ScannedFile& file)
    {
        const auto read = Number<quint8>();
        if (read > 1)
            m_failed = true;
        if (read != 1)
            return;
        file.result = StreamReadResult::Read;
        WorkflowFileData& data = file.data;
        const auto units = Number<quint32>();
        // Every unit of the block comes from at least one byte of the entry.
        if (m_failed || units > quint64(m_size - m_at))
        {
            m_failed = true;
            return;
        }
        // Room for the last text to be widened past its end in whole steps.
        QString block(qsizetype(units) + kWidenStep - 1, Qt::Uninitialized);
        m_header = block.data_ptr().d_ptr();
        m_blockAt = block.data_ptr().data();
        m_blockEnd = m_blockAt + units;
        m_slices = 0;
        ReadTexts(data);
        // Every unit the entry announced is used, as a writer counts them.
        if (m_blockAt != m_blockEnd)
            m_failed = true;
        // The slices' references, all at once: one atomic step per file rather than one per text.
        m_header->ref_.fetchAndAddRelaxed(int(m_slices));
        m_header = nullptr;
    }

    void ReadTexts(WorkflowFileData& data)
    {
        data.hasXlfFile = Flag();
        data.xlfFile = Text();
        const auto count = Number<quint32>();
        // Every element takes some bytes: a count the rest of the file cannot hold is damage.
        if (count > quint64(m_size - m_at))
            m_failed = true;
        if (m_failed)
            return;
        data.elements.reserve(qsizetype(count));
        for (quint32 i = 0; i < count && !m_failed; ++i)
        {
            WorkflowElementData& element = data.elements.emplace_back();
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
            qsizetype deferredUnits = 0;
            element.settings = Markup(deferredUnits);
            if (deferredUnits > 0)
                m_deferred.emplace_back(qsizetype(i), deferredUnits);
        }
    }

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
    // The block of the file being read and the room left in it.
    QTypedArrayData<char16_t>* m_header = nullptr;
    char16_t* m_blockAt = nullptr;
    char16_t* m_blockEnd = nullptr;
    qsizetype m_slices = 0;
    std::vector<std::pair<qsizetype, qsizetype>> m_deferred;
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

// An index file as a load opened it. It stays open while anything loaded from it lives: the
// records' deferred markup is read from it, even after a later scan has replaced the file.
class CatalogueIndexFile
{
public:
    explicit CatalogueIndexFile(QString path) : m_path(std::move(path)), m_file(m_path) {}

    bool Open()
    {
        if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
            return false;
        m_identity = Platform::IdentifyFile(m_path);
        return true;
    }
    qint64 Size() const { return m_file.size(); }
    // Up to size bytes from offset; fewer where the file ends first. One reader at a time: the
    // load, the scan copying blocks and a record reading its markup share the file.
    qint64 ReadAt(qint64 offset, char* data, qint64 size)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_file.seek(offset))
            return -1;
        qint64 done = 0;
        while (done < size)
        {
            const qint64 read = m_file.read(data + done, size - done);
            if (read <= 0)
                break;
            done += read;
        }
        return done;
    }
    // The bytes from offset, null unless all of them are there.
    QByteArray ReadAt(qint64 offset, qint64 size)
    {
        QByteArray bytes(size, Qt::Uninitialized);
        if (ReadAt(offset, bytes.data(), size) != size)
            return QByteArray();
        return bytes;
    }
    // The file was found damaged after its load: it goes, so that the next scan writes it anew,
    // unless another scan has replaced it already.
    void Drop()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_dropped)
            return;
        m_dropped = true;
        if (m_identity.exists && Platform::IdentifyFile(m_path) == m_identity)
            QFile::remove(m_path);
    }

private:
    const QString m_path;
    QFile m_file;
    Platform::FileIdentity m_identity;
    std::mutex m_mutex;
    bool m_dropped = false;
};

namespace {

// The blocks of an index file, read in order through a buffer that is reused.
class BlockReader
{
public:
    BlockReader(CatalogueIndexFile& file, qint64 start) : m_file(file), m_start(start) {}

    // Where in the file the next block starts.
    qint64 Offset() const { return m_base + m_at; }
    // The next block's bytes when they are all there and match their digest; null otherwise.
    const char* Next(qsizetype& size)
    {
        quint64 digest = 0;
        const char* block = Unchecked(size, digest);
        if (!block || Digest(block, size) != digest)
            return nullptr;
        return block;
    }
    // The next block's bytes when they are all there, and the digest they should match, which
    // is left to whoever reads them.
    const char* Unchecked(qsizetype& size, quint64& digest)
    {
        if (!Fill(kBlockHeaderSize))
            return nullptr;
        quint32 length;
        std::memcpy(&length, m_buffer.constData() + m_at, 4);
        std::memcpy(&digest, m_buffer.constData() + m_at + 4, 8);
        if (length > kLargestBlock || !Fill(kBlockHeaderSize + length))
            return nullptr;
        const char* block = m_buffer.constData() + m_at + kBlockHeaderSize;
        m_at += kBlockHeaderSize + length;
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
            const qint64 read =
                m_file.ReadAt(m_start + m_base + m_end, m_buffer.data() + m_end, m_buffer.size() - m_end);
            if (read <= 0)
                return false;
            m_end += read;
        }
        return true;
    }

    CatalogueIndexFile& m_file;
    // Where in the file the blocks start.
    const qint64 m_start;
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

// The payload of the block framed at bytes, when all of it lies within available and matches
// its digest; null otherwise. size and digest are what the frame says.
const char* CheckedPayload(const char* bytes, qsizetype available, qsizetype& size, quint64& digest)
{
    if (available < kBlockHeaderSize)
        return nullptr;
    quint32 length;
    std::memcpy(&length, bytes, 4);
    std::memcpy(&digest, bytes + 4, 8);
    const char* payload = bytes + kBlockHeaderSize;
    if (qsizetype(length) > available - kBlockHeaderSize || Digest(payload, length) != digest)
        return nullptr;
    size = length;
    return payload;
}

// The length a markup block of these deferred markups has: its kind, then each markup.
qsizetype MarkupBlockSize(const std::vector<std::pair<qsizetype, qsizetype>>& deferred)
{
    qsizetype size = 1;
    for (const auto& [element, units] : deferred)
        size += units;
    return size;
}

// Whether a payload is the markup block that holds these deferred markups.
bool IsMarkupBlockOf(const char* payload, qsizetype size,
                     const std::vector<std::pair<qsizetype, qsizetype>>& deferred)
{
    return payload && size >= 1 && quint8(payload[0]) == kMarkupBlock && size == MarkupBlockSize(deferred);
}

// A file's markup block, where a load left it.
class StoredMarkup
{
public:
    StoredMarkup(std::shared_ptr<CatalogueIndexFile> index, qint64 offset, qsizetype size, quint64 digest,
                 QString workflowFile)
        : m_index(std::move(index)), m_offset(offset), m_size(size), m_digest(digest),
          m_workflowFile(std::move(workflowFile))
    {
    }

    // The block's payload as its entry's scan wrote it; null when the index no longer holds it
    // so (the index is then dropped).
    QByteArray Payload() const
    {
        const QByteArray bytes = m_index->ReadAt(m_offset, kBlockHeaderSize + m_size);
        qsizetype size = 0;
        quint64 digest = 0;
        const char* payload = CheckedPayload(bytes.constData(), bytes.size(), size, digest);
        if (payload && size == m_size && digest == m_digest && quint8(payload[0]) == kMarkupBlock)
            return bytes.sliced(kBlockHeaderSize);
        m_index->Drop();
        return QByteArray();
    }
    // The markup of one element: size bytes at at in the block's payload, or, when the index no
    // longer holds the block so, the element's markup as the workflow file holds it now.
    CompactText Markup(qsizetype at, qsizetype size, qsizetype element) const
    {
        const QByteArray payload = Payload();
        if (payload.isNull())
            return FromWorkflowFile(element);
        return CompactText::FromLatin1(payload.sliced(at, size));
    }

private:
    // The markup of the element as the workflow file holds it now: what a damaged index can no
    // longer give. Unless the file changed since the scan, that is the markup the scan took.
    CompactText FromWorkflowFile(qsizetype element) const
    {
        WorkflowFileData data;
        if (ReadWorkflowFileData(m_workflowFile, QString(), data) != StreamReadResult::Read ||
            element >= data.elements.size())
            return CompactText();
        return data.elements.at(element).settings;
    }

    const std::shared_ptr<CatalogueIndexFile> m_index;
    const qint64 m_offset;
    const qsizetype m_size;
    const quint64 m_digest;
    const QString m_workflowFile;
};

// One element's markup in its file's markup block, which the file's other elements share.
class DeferredMarkup final : public DeferredText
{
public:
    DeferredMarkup(std::shared_ptr<const StoredMarkup> block, qsizetype at, qsizetype size, qsizetype element)
        : m_block(std::move(block)), m_at(at), m_size(size), m_element(element)
    {
    }

protected:
    CompactText Read() const override { return m_block->Markup(m_at, m_size, m_element); }

private:
    const std::shared_ptr<const StoredMarkup> m_block;
    const qsizetype m_at;
    const qsizetype m_size;
    const qsizetype m_element;
};

// The markup of a file whose block holds one element's alone, as nearly every file's does: the
// block and the element's place in it in one object, made with one allocation at a start.
class SoleMarkup final : public DeferredText
{
public:
    SoleMarkup(StoredMarkup block, qsizetype size, qsizetype element)
        : m_block(std::move(block)), m_size(size), m_element(element)
    {
    }

protected:
    CompactText Read() const override { return m_block.Markup(1, m_size, m_element); }

private:
    const StoredMarkup m_block;
    const qsizetype m_size;
    const qsizetype m_element;
};

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
// what the benchmark's index of 10,000 files took while its markup was loaded with the entries.
// Every fault the load takes itself delays the whole start, so this errs on the high side; what
// is not used goes back when the load is over. Markup blocks now take nothing at a start, yet
// reserving by the entries' own bytes alone measured no better (16 to 48 quarters a byte of
// them the same, fewer slower).
constexpr size_t kLoadedQuartersPerIndexByte = 10;
// The load makes its memory ready this much ahead of what it has read: enough to take hundreds of
// fresh pages in one go, little enough that the first entries are handed over at once.
constexpr size_t kLoadReservationStep = 2 << 20;
// Entries are handed to the scan in chunks of this many.
constexpr size_t kChunkEntries = 128;
// The load asks for the status of a file when the scan is at least this many entries behind.
constexpr qsizetype kStatusLead = 256;

} // namespace

void CatalogueIndex::ExpectLoad()
{
    // Whatever an earlier load of this index gave is dropped, on the thread that takes entries.
    m_seen.clear();
    m_next = EntryAt();
    m_byPath.clear();
    m_byPathMade = false;
    m_passed = 0;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_chunks.clear();
    m_entryCount = 0;
    m_source.reset();
    m_loadedScanStartedNs = 0;
    m_state = LoadState::Loading;
}

bool CatalogueIndex::Load(bool reserveMemory, bool askStatus)
{
    // Announced already when the load runs on another thread than the scan's.
    if (m_state != LoadState::Loading)
        ExpectLoad();
    qsizetype entries = 0;
    bool loaded = false;
    try
    {
        loaded = LoadEntries(reserveMemory, askStatus, entries);
    }
    catch (...)
    {
        // An index that could not be read for want of memory is no index; a scan waiting for
        // its entries must still hear that the load has ended.
        loaded = false;
    }
    EndLoad(loaded, entries);
    return loaded;
}

bool CatalogueIndex::LoadEntries(bool reserveMemory, bool askStatus, qsizetype& entries)
{
    if (m_file.isEmpty() || !IsRegularFile(m_file))
        return false;
    auto source = std::make_shared<CatalogueIndexFile>(m_file);
    if (!source->Open())
        return false;
    char header[kHeaderSize];
    if (source->ReadAt(0, header, kHeaderSize) != kHeaderSize)
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

    BlockReader blocks(*source, kHeaderSize);
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
    {
        // Read by the scan only after it has been handed a chunk.
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_loadedScanStartedNs = scanStarted;
    }
    // The entries of an index of this catalogue fill this thread's heap as they are read: their
    // texts widen from UTF-8 to UTF-16, and each text, list and file has a header of its own.
    // Their memory is made ready a step ahead of them, so that the scan, which takes the entries
    // as they come, never waits for all of it.
    const size_t planned = reserveMemory ? size_t(source->Size()) * kLoadedQuartersPerIndexByte / 4 : 0;
    std::vector<std::unique_ptr<Platform::HeapReservation>> reservations;
    size_t reserved = 0;
    const auto reserveAhead = [&](qint64 read) {
        const size_t wanted =
            std::min(planned, size_t(read) * kLoadedQuartersPerIndexByte / 4 + kLoadReservationStep);
        while (reserved < wanted)
        {
            const size_t step = std::min(kLoadReservationStep, planned - reserved);
            reservations.push_back(std::make_unique<Platform::HeapReservation>(step));
            reserved += step;
        }
    };
    // Handed over before any entry is, so that the scan may copy the blocks it took even when a
    // later one turns out damaged. Neither thread reads it again until the load has ended.
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_source = source;
    }
    std::vector<Entry> chunk;
    chunk.reserve(kChunkEntries);
    qsizetype published = 0;
    Platform::FolderStatus status;
    for (;;)
    {
        const qint64 offset = kHeaderSize + blocks.Offset();
        reserveAhead(offset);
        block = blocks.Next(size);
        if (!block)
            return false;
        Reader reader(block, size);
        const auto kind = reader.Number<quint8>();
        if (kind == kEndBlock)
        {
            const auto count = reader.Number<quint32>();
            if (reader.Failed() || !reader.AtEnd() || count != quint64(entries) || !blocks.AtEnd())
                return false;
            break;
        }
        if (kind != kEntryBlock)
            return false;
        Entry entry;
        entry.path = reader.Text();
        entry.identity = reader.Identity();
        const std::shared_ptr<ScannedFile> file = reader.File();
        if (reader.Failed() || !reader.AtEnd())
            return false;
        if (!reader.Deferred().empty())
        {
            // The file's long markup follows in a block of its own, left where it is: it is
            // checked against its digest when a record first asks for it.
            const qint64 markupOffset = kHeaderSize + blocks.Offset();
            quint64 digest = 0;
            const char* markup = blocks.Unchecked(size, digest);
            if (!IsMarkupBlockOf(markup, size, reader.Deferred()))
                return false;
            StoredMarkup stored(source, markupOffset, size, digest, entry.path);
            const auto& deferred = reader.Deferred();
            if (deferred.size() == 1)
            {
                const auto [element, units] = deferred.front();
                file->data.elements[element].settings = CompactText::Deferred(
                    std::make_shared<const SoleMarkup>(std::move(stored), units, element));
            }
            else
            {
                const auto shared = std::make_shared<const StoredMarkup>(std::move(stored));
                qsizetype at = 1;
                for (const auto& [element, units] : deferred)
                {
                    file->data.elements[element].settings = CompactText::Deferred(
                        std::make_shared<const DeferredMarkup>(shared, at, units, element));
                    at += units;
                }
            }
        }
        entry.file = file;
        entry.offset = offset;
        entry.length = kHeaderSize + blocks.Offset() - offset;
        if (askStatus && published * qsizetype(kChunkEntries) + qsizetype(chunk.size()) >
                             m_passed.load(std::memory_order_relaxed) + kStatusLead)
        {
            entry.status = status.Of(entry.path);
            entry.statusAsked = true;
        }
        chunk.push_back(std::move(entry));
        ++entries;
        if (chunk.size() == kChunkEntries)
        {
            Publish(chunk);
            ++published;
        }
    }
    if (!chunk.empty())
        Publish(chunk);
    return true;
}

void CatalogueIndex::Publish(std::vector<Entry>& chunk)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_chunks.push_back(std::move(chunk));
    }
    m_changed.notify_all();
    chunk = std::vector<Entry>();
    chunk.reserve(kChunkEntries);
}

void CatalogueIndex::EndLoad(bool loaded, qsizetype entries)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entryCount = entries;
        m_state = loaded ? LoadState::Loaded : LoadState::Failed;
    }
    m_changed.notify_all();
}

const QHash<QString, CatalogueIndex::EntryAt>& CatalogueIndex::Paths()
{
    if (m_byPathMade)
        return m_byPath;
    m_byPathMade = true;
    // Kept after a failure too: the entries handed over before it are intact, and the blocks of
    // those the scan took are copied into the new index.
    qsizetype count = 0;
    for (const auto& [entries, size] : m_seen)
        count += size;
    m_byPath.reserve(count);
    // From the last entry back, so that the first of two for one path is the one kept.
    for (size_t chunk = m_seen.size(); chunk-- > 0;)
    {
        for (qsizetype at = m_seen[chunk].second; at-- > 0;)
            m_byPath.insert(m_seen[chunk].first[at].path, EntryAt{qsizetype(chunk), at});
    }
    return m_byPath;
}

void CatalogueIndex::SeeChunks(std::unique_lock<std::mutex>& lock)
{
    Q_UNUSED(lock);
    for (size_t k = m_seen.size(); k < m_chunks.size(); ++k)
        m_seen.emplace_back(m_chunks[k].data(), qsizetype(m_chunks[k].size()));
}

bool CatalogueIndex::WaitForLoad()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_state != LoadState::Loading; });
    SeeChunks(lock);
    return m_state == LoadState::Loaded;
}

bool CatalogueIndex::MayAnswer() const
{
    const LoadState state = m_state;
    return state == LoadState::Loading || state == LoadState::Loaded;
}

CatalogueIndex::Entry* CatalogueIndex::EntryAtPlace(bool wait)
{
    for (;;)
    {
        if (size_t(m_next.chunk) < m_seen.size())
        {
            const auto [entries, count] = m_seen[size_t(m_next.chunk)];
            if (m_next.at < count)
                return &entries[m_next.at];
            ++m_next.chunk;
            m_next.at = 0;
            continue;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        if (wait)
            m_changed.wait(
                lock, [this] { return m_chunks.size() > m_seen.size() || m_state != LoadState::Loading; });
        const size_t seen = m_seen.size();
        SeeChunks(lock);
        // Nothing more handed over: not yet, or (when waiting) the load has ended.
        if (m_seen.size() == seen)
            return nullptr;
    }
}

CatalogueIndex::Entry* CatalogueIndex::NextEntry(const QString& path)
{
    Entry* entry = EntryAtPlace(true);
    if (!entry || entry->path != path)
        return nullptr;
    ++m_next.at;
    m_passed.store(m_next.chunk * qsizetype(kChunkEntries) + m_next.at, std::memory_order_relaxed);
    return entry;
}

bool CatalogueIndex::LoadedStatus(QStringView folder, QStringView name, QString& path,
                                  Platform::ListedFile& status)
{
    const Entry* entry = MayAnswer() ? EntryAtPlace(false) : nullptr;
    if (entry && entry->path.size() == folder.size() + name.size() && entry->path.startsWith(folder) &&
        entry->path.endsWith(name))
    {
        path = entry->path;
        if (!entry->statusAsked)
            return false;
        status = entry->status;
        return true;
    }
    QString joined;
    joined.reserve(folder.size() + name.size());
    joined.append(folder).append(name);
    path = std::move(joined);
    return false;
}

CatalogueIndex::Entry* CatalogueIndex::EntryOf(const QString& path)
{
    if (!WaitForLoad())
        return nullptr;
    const QHash<QString, EntryAt>& paths = Paths();
    const auto found = paths.constFind(path);
    if (found == paths.cend())
        return nullptr;
    m_next = {found->chunk, found->at + 1};
    m_passed.store(m_next.chunk * qsizetype(kChunkEntries) + m_next.at, std::memory_order_relaxed);
    return &m_seen[size_t(found->chunk)].first[found->at];
}

const CatalogueIndex::Entry* CatalogueIndex::LoadedEntry(const QString& path)
{
    const QHash<QString, EntryAt>& paths = Paths();
    const auto found = paths.constFind(path);
    if (found == paths.cend() || size_t(found->chunk) >= m_seen.size())
        return nullptr;
    return &m_seen[size_t(found->chunk)].first[found->at];
}

QByteArray CatalogueIndex::LoadedBlock(const Entry* entry) const
{
    if (!entry || !m_source)
        return QByteArray();
    QByteArray bytes = m_source->ReadAt(entry->offset, entry->length);
    // Empty, not null, for a block that is not all there: a copy of it is no copy.
    return bytes.isNull() ? QByteArray("") : bytes;
}

ScannedFilePtr CatalogueIndex::Take(const QString& path, const Platform::FileIdentity& identity)
{
    if (!MayAnswer())
        return nullptr;
    // Unchanged files come in the order the index holds them; anything else is looked up.
    Entry* entry = NextEntry(path);
    if (!entry)
        entry = EntryOf(path);
    // A damaged block found further on makes the whole index untrusted from then on.
    if (!entry || !MayAnswer() || entry->identity != identity)
        return nullptr;
    if (identity.modifiedNs > m_loadedScanStartedNs - kRacyWindowNs)
        return nullptr;
    // The entry keeps what it hands over, and a file listed twice gets the same data both times.
    // The scan lets go of a large index all at once, off its own thread: freeing each file's data
    // here, as the scan moves on, would free memory of the loading thread's heap while that
    // thread is still filling it, and cost the two threads more than the work itself.
    return entry->file;
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
    // What was entered unchanged so far goes in as it stood in the old index, once the load has
    // let go of it.
    WaitForLoad();
    for (const QString& path : std::as_const(m_unchangedEntered))
    {
        const QByteArray copied = LoadedBlock(LoadedEntry(path));
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
        const QByteArray copied = LoadedBlock(LoadedEntry(path));
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
        if (!block.MarkupBlock().isEmpty())
            AppendBlock(m_writing->out, block.MarkupBlock());
    }
    ++m_writing->count;
    m_writing->Flush(1 << 20);
}

bool CatalogueIndex::Finish()
{
    // Nothing differed and nothing is gone: the old index stands.
    const bool intact = WaitForLoad();
    if (!m_writing && !m_writeFailed && intact && m_entered.size() == m_entryCount)
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

void CatalogueIndex::ReleaseOn(QThreadPool& pool)
{
    WaitForLoad();
    auto remains = std::make_shared<
        std::tuple<std::vector<std::vector<Entry>>, QHash<QString, EntryAt>, QSet<QString>, QStringList>>(
        std::move(m_chunks), std::move(m_byPath), std::move(m_entered), std::move(m_unchangedEntered));
    m_chunks.clear();
    m_seen.clear();
    m_next = EntryAt();
    m_byPath.clear();
    m_byPathMade = false;
    m_entered.clear();
    m_unchangedEntered.clear();
    m_entryCount = 0;
    m_state = LoadState::None;
    pool.start([remains = std::move(remains)]() mutable { remains.reset(); });
}

} // namespace Velmora::WorkflowCore
