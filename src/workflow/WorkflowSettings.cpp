// SPDX-License-Identifier: MIT
#include "workflow/WorkflowSettings.h"

#include "platform/Platform.h"
#include "util/FileUtil.h"
#include "util/XmlFiler.h"
#include "util/XmlStreamReading.h"

#include <QHash>
#include <QScopeGuard>
#include <QThreadPool>
#include <QVarLengthArray>
#include <QXmlStreamReader>

#include <cstring>
#include <future>
#include <memory>
#include <optional>

namespace Velmora::WorkflowCore {

namespace {

const QString kWorkflowPath = QStringLiteral("/WorkflowSettings/Workflows/Workflow");
const QString kId = QStringLiteral("Id");

// Moves the filer's cursor from the first "Workflow" element to the first one, it or a following
// sibling of any name, whose Id equals workflowId exactly: user settings tell apart ids that
// the catalogue would take as one.
bool GoToWorkflowElement(XmlFiler& filer, const QString& workflowId)
{
    if (!filer.GoToPath(kWorkflowPath))
        return false;
    do
    {
        if (filer.GetAttribute(kId, QString()) == workflowId)
            return true;
    } while (filer.GoToNextSibling());
    return false;
}

// The attributes of one element, packed into one text as name, value, name, value, each ended
// by a null character (which no XML name or value holds): a table of a hundred thousand ids
// then costs a few times the file, where a hash per element would cost many times it.
void Pack(QString& packed, const QString& name, const QString& value)
{
    packed += name;
    packed += QChar(0);
    packed += value;
    packed += QChar(0);
}

// Where the value of key starts in packed and how long it is; false when the element lacks it.
bool FindValue(const QString& packed, QStringView key, qsizetype& start, qsizetype& length)
{
    qsizetype at = 0;
    while (at < packed.size())
    {
        const qsizetype nameEnd = packed.indexOf(QChar(0), at);
        const qsizetype valueEnd = packed.indexOf(QChar(0), nameEnd + 1);
        if (nameEnd < 0 || valueEnd < 0)
            break;
        if (QStringView(packed).mid(at, nameEnd - at) == key)
        {
            start = nameEnd + 1;
            length = valueEnd - start;
            return true;
        }
        at = valueEnd + 1;
    }
    return false;
}

QString Unpack(const QString& packed, QStringView key)
{
    qsizetype start = 0;
    qsizetype length = 0;
    return FindValue(packed, key, start, length) ? packed.mid(start, length) : QString();
}

// The Id an element is looked up by: empty when it has none, as the reader takes it.
QString IdOf(const QString& packed)
{
    return Unpack(packed, kId);
}

// The characters of a plain name: plain letters and the underscore anywhere, digits, '-' and '.'
// after the first.
bool IsPlainNameCharacter(char16_t c, bool first)
{
    const bool letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_';
    const bool other = (c >= u'0' && c <= u'9') || c == u'-' || c == u'.';
    return letter || (!first && other);
}

// Whether a name of plain characters is free for use: not empty, and not beginning with "xml" in
// any case, which XML keeps for itself.
template <typename Name> bool IsFreeName(Name name)
{
    return !name.isEmpty() && !name.startsWith(QLatin1String("xml"), Qt::CaseInsensitive);
}

// A name the settings writer writes as it stands and every reader reads back the same: plain
// letters, digits and a few marks, no prefix, nothing XML keeps for itself.
bool IsPlainName(QStringView name)
{
    if (!IsFreeName(name))
        return false;
    for (qsizetype i = 0; i < name.size(); ++i)
    {
        if (!IsPlainNameCharacter(name[i].unicode(), i == 0))
            return false;
    }
    return true;
}

// Whether the write reaches the file exactly as the settings writer writes it. Any other one
// (a key that is no plain name, the Id itself, a character no XML file holds) takes the
// document's way, which is the single write's own.
bool IsPlainWrite(const QString& workflowId, const QString& key, const QString& value)
{
    return key != kId && IsPlainName(key) && !HoldsNonXmlCharacter(workflowId) &&
           !HoldsNonXmlCharacter(value);
}

// The run of workflow elements, each packed, in document order (an Id may come twice: the
// first one counts). When the file is plain (the layout the settings writer writes: an
// optional declaration, the root and "Workflows" without attributes, only "Workflow" elements
// with an Id and no content, plain attribute names, nothing else but white space) it can be
// written again from the elements alone.
bool ParsePlain(const QByteArray& bytes, QList<QString>& elements)
{
    QXmlStreamReader reader(bytes);
    reader.setNamespaceProcessing(false);
    int depth = 0;
    int lists = 0;
    while (!reader.atEnd())
    {
        switch (reader.readNext())
        {
        case QXmlStreamReader::StartDocument:
        case QXmlStreamReader::EndDocument:
            break;
        case QXmlStreamReader::StartElement:
        {
            ++depth;
            const QXmlStreamAttributes attributes = reader.attributes();
            const QStringView name = reader.qualifiedName();
            if (depth == 1)
            {
                if (name != QLatin1String("WorkflowSettings") || !attributes.isEmpty())
                    return false;
            }
            else if (depth == 2)
            {
                if (name != QLatin1String("Workflows") || !attributes.isEmpty() || ++lists > 1)
                    return false;
            }
            else if (depth == 3 && name == QLatin1String("Workflow"))
            {
                QString packed;
                bool hasId = false;
                for (const QXmlStreamAttribute& attribute : attributes)
                {
                    const QStringView attributeName = attribute.qualifiedName();
                    const QStringView value = attribute.value();
                    if (!IsPlainName(attributeName) || HoldsNonXmlCharacter(value))
                        return false;
                    hasId = hasId || attributeName == kId;
                    packed += attributeName;
                    packed += QChar(0);
                    packed += value;
                    packed += QChar(0);
                }
                if (!hasId)
                    return false;
                packed.squeeze();
                elements.append(std::move(packed));
            }
            else
            {
                return false;
            }
            break;
        }
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        case QXmlStreamReader::Characters:
            if (reader.isCDATA() || !reader.isWhitespace())
                return false;
            break;
        default: // comments, instructions, a document type, entities, errors
            return false;
        }
    }
    return !reader.hasError();
}

// An element packed as it is read, before it is kept in a text of its exact size.
using PackedElement = QVarLengthArray<char16_t, 256>;

// Appends count bytes of Latin-1 (every byte one character) to out.
void AppendLatin1(PackedElement& out, const char* from, qsizetype count)
{
    const qsizetype at = out.size();
    out.resize(at + count);
    char16_t* to = out.data() + at;
    for (qsizetype i = 0; i < count; ++i)
        to[i] = static_cast<unsigned char>(from[i]);
}

// Appends the value of an attribute written between quotes, from at, unescaped to packed: false
// for anything but printable ASCII and the escapes the writer writes, which the XML reader is
// left to read. at ends after the closing quote.
bool TakeWrittenValue(const char*& at, const char* end, PackedElement& packed)
{
    const char* run = at;
    for (; at < end; ++at)
    {
        const auto c = static_cast<unsigned char>(*at);
        if (c == '"')
        {
            AppendLatin1(packed, run, at - run);
            ++at;
            return true;
        }
        if (c < 0x20 || c >= 0x7F || c == '<')
            return false;
        if (c != '&')
            continue;
        AppendLatin1(packed, run, at - run);
        static constexpr struct
        {
            const char* escape;
            char16_t character;
        } kEscapes[] = {{"&amp;", u'&'},  {"&lt;", u'<'},   {"&gt;", u'>'},  {"&quot;", u'"'},
                        {"&#x9;", u'\t'}, {"&#xa;", u'\n'}, {"&#xd;", u'\r'}};
        bool known = false;
        for (const auto& [escape, character] : kEscapes)
        {
            const size_t length = std::strlen(escape);
            if (size_t(end - at) >= length && std::memcmp(at, escape, length) == 0)
            {
                packed.append(character);
                at += length - 1;
                known = true;
                break;
            }
        }
        if (!known)
            return false;
        run = at + 1;
    }
    return false;
}

bool ParseAsWritten(const QByteArray& bytes, QList<QString>& elements)
{
    const char* at = bytes.constData();
    const char* const end = at + bytes.size();
    const auto take = [&at, end](QLatin1StringView text) {
        if (end - at < text.size() || std::memcmp(at, text.data(), size_t(text.size())) != 0)
            return false;
        at += text.size();
        return true;
    };
    if (!take(QLatin1StringView("<?xml version=\"1.0\"?>\n<WorkflowSettings>\n")))
        return false;
    QList<QString> read;
    if (!take(QLatin1StringView("    <Workflows/>\n")))
    {
        if (!take(QLatin1StringView("    <Workflows>\n")))
            return false;
        // The names of the element's attributes so far, as written, to tell a name given twice.
        QVarLengthArray<QLatin1StringView, 8> names;
        PackedElement packed;
        while (take(QLatin1StringView("        <Workflow")))
        {
            packed.clear();
            names.clear();
            bool hasId = false;
            while (at < end && *at == ' ')
            {
                ++at;
                const char* name = at;
                while (at < end && IsPlainNameCharacter(static_cast<unsigned char>(*at), at == name))
                    ++at;
                // Its characters are a plain name's already: that is a plain name when it is free.
                const QLatin1StringView written(name, at - name);
                if (!IsFreeName(written) || !take(QLatin1StringView("=\"")))
                    return false;
                for (const QLatin1StringView& earlier : names)
                {
                    if (earlier == written)
                        return false;
                }
                names.append(written);
                hasId = hasId || written == QLatin1StringView("Id");
                AppendLatin1(packed, written.data(), written.size());
                packed.append(u'\0');
                if (!TakeWrittenValue(at, end, packed))
                    return false;
                packed.append(u'\0');
            }
            if (!hasId || !take(QLatin1StringView("/>\n")))
                return false;
            read.append(QString(reinterpret_cast<const QChar*>(packed.constData()), packed.size()));
        }
        // The writer writes an empty list as one empty element.
        if (read.isEmpty() || !take(QLatin1StringView("    </Workflows>\n")))
            return false;
    }
    if (!take(QLatin1StringView("</WorkflowSettings>\n")) || at != end)
        return false;
    elements = std::move(read);
    return true;
}

// Reads the file as a whole document; false when it cannot be opened or parsed.
bool ReadElementsFromDocument(const QString& file, QList<QString>& elements)
{
    XmlFiler filer(false);
    if (!filer.Open(file))
        return false;
    elements.clear();
    if (filer.GoToPath(kWorkflowPath))
    {
        do
        {
            const QDomElement element = filer.GetCurrentElement();
            QString packed;
            const QDomNamedNodeMap map = element.attributes();
            for (int i = 0; i < map.count(); ++i)
            {
                const QDomAttr attribute = map.item(i).toAttr();
                Pack(packed, attribute.name(), attribute.value());
            }
            elements.append(std::move(packed));
        } while (filer.GoToNextSibling());
    }
    return true;
}

// Reads the file in one streaming pass, the plain layout first; a file that declares a
// document type goes the document's way, which alone expands its entities.
bool ReadElements(const QString& file, QList<QString>& elements, bool& plain)
{
    plain = false;
    QList<QString> read;
    StreamReadResult result;
    {
        QByteArray bytes;
        if (!ReadRegularFileBytes(file, bytes))
            return false;
        if (ParseAsWritten(bytes, read) || ParsePlain(bytes, read))
        {
            plain = true;
            elements = std::move(read);
            return true;
        }
        read.clear();
        result = ParseElementRun(bytes, kWorkflowPath,
                                 [&read](const QList<std::pair<QString, QString>>& attributes) {
                                     QString packed;
                                     for (const auto& [name, value] : attributes)
                                         Pack(packed, name, value);
                                     packed.squeeze();
                                     read.append(std::move(packed));
                                 });
    }
    if (result == StreamReadResult::NeedsDocument)
        return ReadElementsFromDocument(file, elements);
    if (result != StreamReadResult::Read)
        return false;
    elements = std::move(read);
    return true;
}

void AppendEscaped(QString& out, QStringView text)
{
    for (const QChar c : text)
    {
        switch (c.unicode())
        {
        case u'&':
            out += QLatin1String("&amp;");
            break;
        case u'<':
            out += QLatin1String("&lt;");
            break;
        case u'>':
            out += QLatin1String("&gt;");
            break;
        case u'"':
            out += QLatin1String("&quot;");
            break;
        // Written as they are, a reader would take these for spaces.
        case u'\t':
            out += QLatin1String("&#x9;");
            break;
        case u'\n':
            out += QLatin1String("&#xa;");
            break;
        case u'\r':
            out += QLatin1String("&#xd;");
            break;
        default:
            out += c;
        }
    }
}

// The plain file of the elements, laid out as the document writer lays it out.
QByteArray PlainFile(const QList<QString>& elements)
{
    QString out;
    out.reserve(96 + elements.size() * 80);
    out += QLatin1String("<?xml version=\"1.0\"?>\n<WorkflowSettings>\n");
    if (elements.isEmpty())
        out += QLatin1String("    <Workflows/>\n");
    else
        out += QLatin1String("    <Workflows>\n");
    for (const QString& packed : elements)
    {
        out += QLatin1String("        <Workflow");
        qsizetype at = 0;
        while (at < packed.size())
        {
            const qsizetype nameEnd = packed.indexOf(QChar(0), at);
            const qsizetype valueEnd = packed.indexOf(QChar(0), nameEnd + 1);
            if (nameEnd < 0 || valueEnd < 0)
                break;
            out += QLatin1Char(' ');
            out += QStringView(packed).mid(at, nameEnd - at);
            out += QLatin1String("=\"");
            AppendEscaped(out, QStringView(packed).mid(nameEnd + 1, valueEnd - nameEnd - 1));
            out += QLatin1Char('"');
            at = valueEnd + 1;
        }
        out += QLatin1String("/>\n");
    }
    if (!elements.isEmpty())
        out += QLatin1String("    </Workflows>\n");
    out += QLatin1String("</WorkflowSettings>\n");
    return out.toUtf8();
}

void Store(XmlFiler& filer, const QString& workflowId, const QString& key, const QString& value)
{
    if (!GoToWorkflowElement(filer, workflowId))
    {
        filer.GoToOrCreatePath(kWorkflowPath, true, true);
        filer.SetAttribute(kId, workflowId);
    }
    filer.SetAttribute(key, value);
}

bool Commit(XmlFiler& filer, const QString& file)
{
    filer.EnsureXmlDeclaration();
    return filer.Save(file);
}

QString FileInFolder(const QString& folder)
{
    return folder.isEmpty() ? QString() : folder + QStringLiteral("/WorkflowSettings.xml");
}

// A text as the file gives it back once written: without the characters no XML file holds. An
// Id that holds one never matches an element of the file, and the element a write makes for it
// reads back under the Id without them.
QString AsReadBack(QString text)
{
    RemoveNonXmlCharacters(text);
    return text;
}

} // namespace

QString WorkflowSettingsFolder()
{
    const QString appData = ApplicationDataFolder();
    if (appData.isEmpty())
        return QString();
    return QStringLiteral("%1/%2/%3").arg(appData, Platform::MakerName(), QStringLiteral("WorkflowSettings"));
}

QString WorkflowSettingsFile()
{
    return FileInFolder(WorkflowSettingsFolder());
}

bool ReadWorkflowSettingsFile(const QString& file, QHash<QString, QHash<QString, QString>>& settings,
                              bool fromDocument)
{
    QList<QString> elements;
    bool plain = false;
    if (!(fromDocument ? ReadElementsFromDocument(file, elements) : ReadElements(file, elements, plain)))
        return false;
    settings.clear();
    for (const QString& packed : std::as_const(elements))
    {
        const QString id = IdOf(packed);
        if (settings.contains(id))
            continue;
        QHash<QString, QString>& attributes = settings[id];
        const QStringList parts = packed.split(QChar(0));
        for (qsizetype i = 0; i + 1 < parts.size(); i += 2)
            attributes.insert(parts.at(i), parts.at(i + 1));
    }
    return true;
}

// What the settings file held when it was last read, with the writes of a running batch
// folded in. Valid while the file keeps the identity it had then.
struct WorkflowSettingsStore::ReadCache
{
    QString file;
    Platform::FileIdentity identity;
    bool loaded = false; // file and identity stand for what the elements hold (a missing file: none)
    bool plain = false;  // the file can be written again from the elements alone
    QList<QString> elements;
    QHash<QString, qsizetype> first; // the first element of each Id

    void Index()
    {
        first.clear();
        first.reserve(elements.size());
        for (qsizetype i = 0; i < elements.size(); ++i)
        {
            QString id = IdOf(elements.at(i));
            if (!first.contains(id))
                first.insert(std::move(id), i);
        }
    }

    // The value of key in the first element of the Id, valid until the next change; none when
    // either is missing.
    std::optional<QStringView> ValueOf(const QString& workflowId, const QString& key) const
    {
        const auto found = first.constFind(workflowId);
        if (found == first.constEnd())
            return std::nullopt;
        const QString& packed = elements.at(*found);
        qsizetype start = 0;
        qsizetype length = 0;
        if (!FindValue(packed, key, start, length))
            return std::nullopt;
        return QStringView(packed).mid(start, length);
    }

    // Sets key = value as a single write sets it on the file and the file reads it back; true
    // when that changed anything.
    bool Apply(const QString& workflowId, const QString& key, const QString& written)
    {
        const QString value = AsReadBack(written);
        const auto found = first.constFind(workflowId);
        if (found == first.constEnd())
        {
            // A new element, last of the run: its Id, then the key.
            QString packed;
            const QString id = key == kId ? value : AsReadBack(workflowId);
            Pack(packed, kId, id);
            if (key != kId)
                Pack(packed, key, value);
            elements.append(std::move(packed));
            // An earlier element of the Id it reads back as stays the first.
            if (!first.contains(id))
                first.insert(id, elements.size() - 1);
            return true;
        }
        QString& packed = elements[*found];
        qsizetype start = 0;
        qsizetype length = 0;
        if (FindValue(packed, key, start, length))
        {
            if (QStringView(packed).mid(start, length) == value)
                return false;
            packed.replace(start, length, value);
        }
        else
        {
            Pack(packed, key, value);
        }
        if (key == kId)
            Index();
        return true;
    }
};

// The writes of the running batches, in the order they were made.
struct WorkflowSettingsStore::PendingWrites
{
    struct Entry
    {
        QString workflowId;
        QString key;
        QString value;
    };
    int depth = 0;
    bool started = false; // the folder and file were looked up, at the batch's first write
    QString folder;
    QString file;
    QList<Entry> writes;
    bool plainWrites = true; // every write can be written by the settings writer as it stands
    bool triedLoad = false;  // the file was read once for the batch (it may be damaged)
    // What each setting the batch changed held in the file as last read (none: it was missing).
    struct Original
    {
        QString workflowId;
        QString key;
        std::optional<QString> value;
    };
    QHash<QString, Original> originals;

    // Folds one write into what was read, remembering what the setting held before its first
    // change. A setting never changed holds what it held.
    void Fold(ReadCache& cache, const Entry& write)
    {
        const std::optional<QStringView> current = cache.ValueOf(write.workflowId, write.key);
        if (current && *current == write.value)
            return;
        const QString slot = write.workflowId + QChar(0) + write.key;
        if (!originals.contains(slot))
        {
            originals.insert(slot, {write.workflowId, write.key,
                                    current ? std::optional<QString>(current->toString()) : std::nullopt});
        }
        cache.Apply(write.workflowId, write.key, write.value);
    }

    // Whether the file as last read lacks a value the batch leaves: a value changed and changed
    // back again is no change.
    bool Changes(const ReadCache& cache) const
    {
        for (const Original& original : originals)
        {
            const std::optional<QStringView> now = cache.ValueOf(original.workflowId, original.key);
            if (now.has_value() != original.value.has_value() || (now && *now != *original.value))
                return true;
        }
        return false;
    }
};

struct WorkflowSettingsStore::Ahead
{
    QString file;
    std::future<std::unique_ptr<ReadCache>> cache;
};

struct WorkflowSettingsStore::Session
{
    int depth = 0;
    bool checked = false; // the file was looked up and its identity checked in this session
    QString file;
};

WorkflowSettingsStore::WorkflowSettingsStore()
    : m_cache(std::make_unique<ReadCache>()), m_pending(std::make_unique<PendingWrites>()),
      m_session(std::make_unique<Session>())
{
}

WorkflowSettingsStore::~WorkflowSettingsStore() = default;

void WorkflowSettingsStore::ReadAhead(QThreadPool& pool)
{
    const QString file = WorkflowSettingsFile();
    if (file.isEmpty() || (m_cache->loaded && m_cache->file == file))
        return;
    auto promise = std::make_shared<std::promise<std::unique_ptr<ReadCache>>>();
    m_ahead = std::make_unique<Ahead>(Ahead{file, promise->get_future()});
    pool.start([promise, file] {
        // Plain data only: the store takes it over on its own thread.
        std::unique_ptr<ReadCache> cache;
        try
        {
            cache = std::make_unique<ReadCache>();
            // Taken before the file is read: a change in between makes the two differ, and the
            // store then reads the file itself.
            cache->identity = Platform::IdentifyFile(file);
            cache->file = file;
            if (cache->identity.exists)
            {
                cache->loaded = ReadElements(file, cache->elements, cache->plain);
                if (cache->loaded)
                    cache->Index();
            }
            else
            {
                cache->plain = true;
                cache->loaded = true;
            }
        }
        catch (...)
        {
            cache.reset();
        }
        promise->set_value(std::move(cache));
    });
}

std::unique_ptr<WorkflowSettingsStore::ReadCache> WorkflowSettingsStore::TakeReadAhead(const QString& file)
{
    if (!m_ahead)
        return nullptr;
    const std::unique_ptr<Ahead> ahead = std::move(m_ahead);
    std::unique_ptr<ReadCache> cache = ahead->cache.get();
    if (!cache || !cache->loaded || ahead->file != file)
        return nullptr;
    return cache;
}

bool WorkflowSettingsStore::LoadCache(const QString& file)
{
    const Platform::FileIdentity identity = Platform::IdentifyFile(file);
    const std::unique_ptr<ReadCache> ahead = TakeReadAhead(file);
    if (m_cache->loaded && m_cache->file == file && m_cache->identity == identity)
        return true;
    if (ahead && ahead->identity == identity)
    {
        *m_cache = std::move(*ahead);
    }
    else
    {
        *m_cache = ReadCache();
        if (identity.exists)
        {
            if (!ReadElements(file, m_cache->elements, m_cache->plain))
                return false;
            m_cache->Index();
        }
        else
        {
            m_cache->plain = true;
        }
        m_cache->file = file;
        m_cache->identity = identity;
        m_cache->loaded = true;
    }
    // The writes of a running batch stay in view of reads, whatever the file became meanwhile.
    PendingWrites& pending = *m_pending;
    if (pending.started && pending.file == file)
    {
        pending.originals.clear();
        for (const PendingWrites::Entry& write : std::as_const(pending.writes))
            pending.Fold(*m_cache, write);
    }
    return true;
}

void WorkflowSettingsStore::ForgetCache()
{
    *m_cache = ReadCache();
    m_session->checked = false;
}

QString WorkflowSettingsStore::Read(const QString& workflowId, const QString& key)
{
    if (key.isEmpty())
        return QString();
    Session& session = *m_session;
    if (session.depth > 0 && session.checked)
    {
        if (!m_cache->loaded || m_cache->file != session.file)
            return QString();
    }
    else
    {
        const QString file = WorkflowSettingsFile();
        const bool loaded = !file.isEmpty() && LoadCache(file);
        if (session.depth > 0)
        {
            session.checked = true;
            session.file = file;
        }
        if (!loaded)
            return QString();
    }
    const auto found = m_cache->first.constFind(workflowId);
    return found == m_cache->first.constEnd() ? QString() : Unpack(m_cache->elements.at(*found), key);
}

void WorkflowSettingsStore::Write(const QString& workflowId, const QString& key, const QString& value)
{
    if (key.isEmpty())
        return;
    PendingWrites& pending = *m_pending;
    if (pending.depth > 0)
    {
        if (!pending.started)
        {
            pending.started = true;
            pending.folder = WorkflowSettingsFolder();
            pending.file = FileInFolder(pending.folder);
        }
        // Without a data folder the writes have nowhere to go, as single writes have not.
        if (pending.file.isEmpty())
            return;
        pending.writes.append(PendingWrites::Entry{workflowId, key, value});
        pending.plainWrites = pending.plainWrites && IsPlainWrite(workflowId, key, value);
        if (m_cache->loaded && m_cache->file == pending.file)
        {
            pending.Fold(*m_cache, pending.writes.constLast());
        }
        else if (!pending.triedLoad)
        {
            // Reading the file once folds in every write so far, this one too.
            pending.triedLoad = true;
            LoadCache(pending.file);
        }
        return;
    }
    const QString folder = WorkflowSettingsFolder();
    if (folder.isEmpty() || !MakePrivateFolders(folder))
        return;
    const QString file = FileInFolder(folder);
    const Platform::FileIdentity before = Platform::IdentifyFile(file);
    XmlFiler filer(false);
    // A file that is there but cannot be read is the user's data all the same: never replace it.
    if (before.exists && !filer.Open(file))
        return;
    Store(filer, workflowId, key, value);
    const bool cacheWasCurrent = m_cache->loaded && m_cache->file == file && m_cache->identity == before;
    if (!Commit(filer, file))
        return;
    // What was read stays good with this write folded in; anything less sure is read again.
    if (cacheWasCurrent && IsPlainWrite(workflowId, key, value))
    {
        m_cache->Apply(workflowId, key, value);
        m_cache->identity = Platform::IdentifyFile(file);
    }
    else
    {
        ForgetCache();
    }
}

void WorkflowSettingsStore::CommitPending()
{
    PendingWrites& pending = *m_pending;
    const auto reset = qScopeGuard([&pending] { pending = PendingWrites(); });
    if (!pending.started || pending.file.isEmpty() || pending.writes.isEmpty())
        return;
    if (!MakePrivateFolders(pending.folder))
    {
        if (m_cache->file == pending.file)
            ForgetCache();
        return;
    }
    // The file as it is now, with every write of the batch folded in. One that is there but
    // cannot be read is the user's data all the same: it is never replaced.
    if (!LoadCache(pending.file))
        return;
    if (!pending.plainWrites || !m_cache->plain)
    {
        // The document's way: the writes in their order, each to the first element of its Id.
        ForgetCache();
        XmlFiler filer(false);
        if (Platform::IdentifyFile(pending.file).exists && !filer.Open(pending.file))
            return;
        QHash<QString, QDomElement> elements;
        const auto index = [&filer, &elements] {
            elements.clear();
            filer.PushPosition();
            if (filer.GoToPath(kWorkflowPath))
            {
                do
                {
                    const QDomElement element = filer.GetCurrentElement();
                    const QString id = AsReadBack(element.attribute(kId));
                    if (!elements.contains(id))
                        elements.insert(id, element);
                } while (filer.GoToNextSibling());
            }
            filer.PopPosition();
        };
        index();
        for (const PendingWrites::Entry& write : std::as_const(pending.writes))
        {
            QDomElement element = elements.value(write.workflowId);
            if (element.isNull())
            {
                filer.GoToOrCreatePath(kWorkflowPath, true, true);
                filer.SetAttribute(kId, write.workflowId);
                element = filer.GetCurrentElement();
                const QString id = AsReadBack(write.workflowId);
                if (!elements.contains(id))
                    elements.insert(id, element);
            }
            element.setAttribute(write.key, write.value);
            if (write.key == kId)
                index();
        }
        Commit(filer, pending.file);
        return;
    }
    // Every value already there, as at every teardown after the first: nothing to write.
    if (!pending.Changes(*m_cache))
        return;
    if (SaveXmlBytes(pending.file, PlainFile(m_cache->elements)))
        m_cache->identity = Platform::IdentifyFile(pending.file);
    else
        ForgetCache();
}

WorkflowSettingsStore::Batch::Batch(WorkflowSettingsStore& store) : m_store(store)
{
    ++m_store.m_pending->depth;
}

WorkflowSettingsStore::Batch::~Batch()
{
    if (--m_store.m_pending->depth == 0)
        m_store.CommitPending();
}

WorkflowSettingsStore::ReadSession::ReadSession(WorkflowSettingsStore& store) : m_store(store)
{
    ++m_store.m_session->depth;
}

WorkflowSettingsStore::ReadSession::~ReadSession()
{
    Session& session = *m_store.m_session;
    if (--session.depth == 0)
    {
        session.checked = false;
        session.file.clear();
    }
}

bool ReadPlainSettings(const QByteArray& bytes, QList<QString>& elements)
{
    elements.clear();
    return ParsePlain(bytes, elements);
}

bool ReadSettingsAsWritten(const QByteArray& bytes, QList<QString>& elements)
{
    elements.clear();
    return ParseAsWritten(bytes, elements);
}

} // namespace Velmora::WorkflowCore
