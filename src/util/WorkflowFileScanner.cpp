// SPDX-License-Identifier: MIT
#include "WorkflowFileScanner.h"

#include "InnerXmlWriter.h"
#include "XmlFiler.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace Velmora::WorkflowCore {

namespace {

using ByteWriter = InnerXmlWriter<std::string, QByteArrayView>;

// Whether every byte is below 0x80: such UTF-8 reads as the same characters in Latin-1.
bool IsAscii(QByteArrayView bytes)
{
    const char* data = bytes.data();
    const qsizetype size = bytes.size();
    qsizetype i = 0;
    for (; i + 8 <= size; i += 8)
    {
        quint64 word;
        std::memcpy(&word, data + i, 8);
        if (word & 0x8080808080808080ULL)
            return false;
    }
    for (; i < size; ++i)
    {
        if (static_cast<unsigned char>(data[i]) >= 0x80)
            return false;
    }
    return true;
}

bool IsBlank(char c)
{
    return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

bool IsNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool IsNameCharacter(char c)
{
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '.' || c == '-';
}

bool IsXmlCharacter(char32_t c)
{
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

// Whether the bytes are strict UTF-8 of characters an XML file may hold. The reader needs no
// further check of what it copies: every character in the file is one the general reader
// accepts as it stands.
bool HoldsOnlyXmlCharacters(QByteArrayView bytes)
{
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const auto* const end = p + bytes.size();
    while (p < end)
    {
        const unsigned char c = *p;
        if (c >= 0x20 && c < 0x80)
        {
            ++p;
            continue;
        }
        if (c < 0x20)
        {
            if (c != '\t' && c != '\n' && c != '\r')
                return false;
            ++p;
            continue;
        }
        int length = 0;
        char32_t code = 0;
        if (c >= 0xC2 && c <= 0xDF)
        {
            length = 2;
            code = c & 0x1F;
        }
        else if (c >= 0xE0 && c <= 0xEF)
        {
            length = 3;
            code = c & 0x0F;
        }
        else if (c >= 0xF0 && c <= 0xF4)
        {
            length = 4;
            code = c & 0x07;
        }
        else
        {
            return false;
        }
        if (end - p < length)
            return false;
        for (int k = 1; k < length; ++k)
        {
            if ((p[k] & 0xC0) != 0x80)
                return false;
            code = (code << 6) | (p[k] & 0x3F);
        }
        // Overlong forms and surrogates are no UTF-8; the rest must be characters XML allows.
        if ((length == 3 && code < 0x800) || (length == 4 && code < 0x10000) || !IsXmlCharacter(code))
            return false;
        p += length;
    }
    return true;
}

void AppendUtf8(QByteArray& out, char32_t c)
{
    if (c < 0x80)
    {
        out.append(char(c));
    }
    else if (c < 0x800)
    {
        out.append(char(0xC0 | (c >> 6)));
        out.append(char(0x80 | (c & 0x3F)));
    }
    else if (c < 0x10000)
    {
        out.append(char(0xE0 | (c >> 12)));
        out.append(char(0x80 | ((c >> 6) & 0x3F)));
        out.append(char(0x80 | (c & 0x3F)));
    }
    else
    {
        out.append(char(0xF0 | (c >> 18)));
        out.append(char(0x80 | ((c >> 12) & 0x3F)));
        out.append(char(0x80 | ((c >> 6) & 0x3F)));
        out.append(char(0x80 | (c & 0x3F)));
    }
}

// The text of UTF-8 bytes, a leading U+FEFF kept: the plain conversion takes one for a byte-order
// mark and drops it, where in a value or a text it is a character like any other.
QString Utf8Text(QByteArrayView bytes)
{
    static const char kZeroWidthNoBreakSpace[] = "\xEF\xBB\xBF";
    if (!bytes.startsWith(kZeroWidthNoBreakSpace))
        return QString::fromUtf8(bytes);
    return QChar(0xFEFF) + Utf8Text(bytes.sliced(3));
}

bool StartsWith(QByteArrayView bytes, qsizetype at, const char* literal)
{
    const qsizetype length = qsizetype(std::strlen(literal));
    return bytes.size() - at >= length && std::memcmp(bytes.data() + at, literal, size_t(length)) == 0;
}

// The attributes a record reads, found by the bytes of their names.
int AttributeIndexOf(QByteArrayView name)
{
    static const std::vector<QByteArray> names = [] {
        std::vector<QByteArray> result;
        for (int i = 0; i < WorkflowAttributeCount; ++i)
            result.push_back(WorkflowAttributeName(static_cast<WorkflowAttribute>(i)).toLatin1());
        return result;
    }();
    for (size_t i = 0; i < names.size(); ++i)
    {
        if (names[i].size() == name.size() &&
            std::memcmp(names[i].constData(), name.data(), size_t(name.size())) == 0)
            return int(i);
    }
    return -1;
}

// Text made only of blanks, in the widest sense, which the document writer leaves out.
bool IsDroppedText(QByteArrayView text)
{
    for (const char c : text)
    {
        if (static_cast<unsigned char>(c) >= 0x80)
        {
            const QString wide = Utf8Text(text);
            return std::all_of(wide.cbegin(), wide.cend(), [](QChar w) { return w.isSpace(); });
        }
        if (!IsBlank(c))
            return false;
    }
    return true;
}

// One pass over a file in the common shape, feeding the same steps as the general reader's pass
// over its tokens. Every Parse* returns false where the file leaves the common shape.
class Scan
{
public:
    Scan(const QByteArray& bytes, const QString& firstTag, const ElementFilter& keep)
        : m_bytes(bytes), m_firstTag(firstTag.toUtf8()), m_keep(keep), m_collecting(firstTag.isEmpty())
    {
    }

    bool Run(WorkflowFileData& data)
    {
        if (!HoldsOnlyXmlCharacters(m_bytes))
            return false;
        if (StartsWith(m_bytes, 0, "\xEF\xBB\xBF"))
            m_at = 3;
        if (StartsWith(m_bytes, m_at, "<?xml") && !ParseDeclaration())
            return false;
        if (!ParseMiscellany() || At(m_at) != '<' || !ParseStartTag())
            return false;
        while (!m_open.empty())
        {
            if (m_at >= m_bytes.size())
                return false;
            if (m_bytes[m_at] != '<')
            {
                if (!ParseText())
                    return false;
            }
            else if (StartsWith(m_bytes, m_at, "</"))
            {
                if (!ParseEndTag())
                    return false;
            }
            else if (StartsWith(m_bytes, m_at, "<!--"))
            {
                if (!ParseComment())
                    return false;
            }
            else if (StartsWith(m_bytes, m_at, "<![CDATA["))
            {
                if (!ParseCharacterData())
                    return false;
            }
            else if (!ParseStartTag())
            {
                return false;
            }
        }
        if (!ParseMiscellany() || m_at != m_bytes.size())
            return false;
        data = std::move(m_result);
        return true;
    }

private:
    using Attribute = ByteWriter::Attribute;

    char At(qsizetype i) const { return i < m_bytes.size() ? m_bytes[i] : '\0'; }

    bool SkipBlanks()
    {
        const qsizetype from = m_at;
        while (m_at < m_bytes.size() && IsBlank(m_bytes[m_at]))
            ++m_at;
        return m_at > from;
    }

    // An ASCII name, with at most one colon between two parts.
    bool ParseName(QByteArrayView& name)
    {
        const qsizetype from = m_at;
        if (!IsNameStart(At(m_at)))
            return false;
        bool colon = false;
        for (++m_at; m_at < m_bytes.size(); ++m_at)
        {
            const char c = m_bytes[m_at];
            if (c == ':' && !colon && IsNameStart(At(m_at + 1)))
                colon = true;
            else if (!IsNameCharacter(c))
                break;
        }
        name = m_bytes.sliced(from, m_at - from);
        return true;
    }

    // Whitespace and comments, before and after the document element.
    bool ParseMiscellany()
    {
        for (;;)
        {
            SkipBlanks();
            if (!StartsWith(m_bytes, m_at, "<!--"))
                return true;
            if (!ParseComment())
                return false;
        }
    }

    // The declaration of version 1.0, in UTF-8 if it names an encoding.
    bool ParseDeclaration()
    {
        m_at += 5;
        if (!SkipBlanks())
            return false;
        QByteArrayView value;
        if (!ParsePseudoAttribute("version", value) || value != "1.0")
            return false;
        bool encodingAllowed = true;
        bool standaloneAllowed = true;
        for (;;)
        {
            const bool blank = SkipBlanks();
            if (StartsWith(m_bytes, m_at, "?>"))
            {
                m_at += 2;
                return true;
            }
            if (!blank)
                return false;
            if (encodingAllowed && ParsePseudoAttribute("encoding", value))
            {
                if (value.compare("utf-8", Qt::CaseInsensitive) != 0)
                    return false;
                encodingAllowed = false;
            }
            else if (standaloneAllowed && ParsePseudoAttribute("standalone", value))
            {
                if (value != "yes" && value != "no")
                    return false;
                encodingAllowed = standaloneAllowed = false;
            }
            else
            {
                return false;
            }
        }
    }

    // One pseudo-attribute of the declaration; where it is not there, nothing is taken.
    bool ParsePseudoAttribute(const char* name, QByteArrayView& value)
    {
        const qsizetype start = m_at;
        if (!StartsWith(m_bytes, m_at, name))
            return false;
        m_at += qsizetype(std::strlen(name));
        qsizetype from = 0;
        qsizetype end = 0;
        if (!ParseQuotedValue(from, end))
        {
            m_at = start;
            return false;
        }
        value = m_bytes.sliced(from, end - from);
        return true;
    }

    // "=" and a value in either quote, blanks allowed around the "=": [from, end) are the value's
    // bytes as written. Left after the closing quote.
    bool ParseQuotedValue(qsizetype& from, qsizetype& end)
    {
        SkipBlanks();
        if (At(m_at) != '=')
            return false;
        ++m_at;
        SkipBlanks();
        const char quote = At(m_at);
        if (quote != '"' && quote != '\'')
            return false;
        from = m_at + 1;
        end = m_bytes.indexOf(quote, from);
        if (end < 0)
            return false;
        m_at = end + 1;
        return true;
    }

    // A reference at m_at: one of the five predefined entities or a character reference.
    bool ParseReference(QByteArray& out)
    {
        qsizetype i = m_at + 1;
        if (At(i) == '#')
        {
            ++i;
            const bool hex = At(i) == 'x';
            if (hex)
                ++i;
            char32_t code = 0;
            const qsizetype digitsFrom = i;
            for (; i < m_bytes.size() && m_bytes[i] != ';'; ++i)
            {
                const char c = m_bytes[i];
                int digit = 0;
                if (c >= '0' && c <= '9')
                    digit = c - '0';
                else if (hex && c >= 'a' && c <= 'f')
                    digit = c - 'a' + 10;
                else if (hex && c >= 'A' && c <= 'F')
                    digit = c - 'A' + 10;
                else
                    return false;
                code = code * (hex ? 16 : 10) + char32_t(digit);
                if (code > 0x10FFFF)
                    return false;
            }
            if (i >= m_bytes.size() || i == digitsFrom || !IsXmlCharacter(code))
                return false;
            AppendUtf8(out, code);
            m_at = i + 1;
            return true;
        }
        static const struct
        {
            const char* name;
            char character;
        } entities[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};
        for (const auto& entity : entities)
        {
            if (StartsWith(m_bytes, m_at, entity.name))
            {
                out.append(entity.character);
                m_at += qsizetype(std::strlen(entity.name));
                return true;
            }
        }
        return false;
    }

    // The characters of [m_at, end) with references expanded (where allowed) and line ends as
    // the reader turns them: in a value each line end, tab or line break reads as one space, in
    // content a carriage return (with the line feed after it) as one line feed. Left at end.
    bool Decode(qsizetype end, bool references, bool value, QByteArray& out)
    {
        out.resize(0);
        qsizetype from = m_at;
        while (m_at < end)
        {
            const char c = m_bytes[m_at];
            if (c == '&' && references)
            {
                out.append(m_bytes.sliced(from, m_at - from));
                if (!ParseReference(out) || m_at > end)
                    return false;
                from = m_at;
            }
            else if (c == '\r' || (value && (c == '\n' || c == '\t')))
            {
                out.append(m_bytes.sliced(from, m_at - from));
                out.append(value ? ' ' : '\n');
                ++m_at;
                if (c == '\r' && m_at < end && m_bytes[m_at] == '\n')
                    ++m_at;
                from = m_at;
            }
            else
            {
                ++m_at;
            }
        }
        out.append(m_bytes.sliced(from, m_at - from));
        return true;
    }

    // [from, end) as it reads: the bytes themselves when nothing in them changes.
    bool Characters(qsizetype from, qsizetype end, bool references, bool value, QByteArray& scratch,
                    QByteArrayView& text)
    {
        bool plain = true;
        for (qsizetype i = from; i < end && plain; ++i)
        {
            const char c = m_bytes[i];
            plain = !((c == '&' && references) || c == '\r' || (value && (c == '\n' || c == '\t')));
        }
        m_at = from;
        if (plain)
        {
            m_at = end;
            text = m_bytes.sliced(from, end - from);
            return true;
        }
        if (!Decode(end, references, value, scratch))
            return false;
        text = scratch;
        return true;
    }

    bool ParseStartTag()
    {
        ++m_at;
        QByteArrayView name;
        if (!ParseName(name))
            return false;
        m_attributes.clear();
        size_t decoded = 0;
        bool empty = false;
        for (;;)
        {
            const bool blank = SkipBlanks();
            const char c = At(m_at);
            if (c == '>')
            {
                ++m_at;
                break;
            }
            if (c == '/')
            {
                if (At(m_at + 1) != '>')
                    return false;
                m_at += 2;
                empty = true;
                break;
            }
            QByteArrayView attributeName;
            qsizetype from = 0;
            qsizetype end = 0;
            if (!blank || !ParseName(attributeName) || !ParseQuotedValue(from, end))
                return false;
            const QByteArrayView raw = m_bytes.sliced(from, end - from);
            if (raw.contains('<'))
                return false;
            for (const Attribute& earlier : m_attributes)
            {
                if (earlier.first == attributeName)
                    return false;
            }
            if (decoded == m_values.size())
                m_values.emplace_back();
            QByteArrayView value;
            if (!Characters(from, end, true, true, m_values[decoded], value))
                return false;
            if (value.data() != raw.data())
                ++decoded;
            m_attributes.emplace_back(attributeName, value);
            m_at = end + 1;
        }
        if (!StartElement(name))
            return false;
        if (empty)
            EndElement(name);
        else
            m_open.push_back(name);
        return true;
    }

    bool ParseEndTag()
    {
        m_at += 2;
        QByteArrayView name;
        if (!ParseName(name) || name != m_open.back())
            return false;
        SkipBlanks();
        if (At(m_at) != '>')
            return false;
        ++m_at;
        m_open.pop_back();
        EndElement(name);
        return true;
    }

    bool ParseText()
    {
        qsizetype end = m_bytes.indexOf('<', m_at);
        if (end < 0)
            return false;
        const QByteArrayView raw = m_bytes.sliced(m_at, end - m_at);
        if (raw.contains("]]>"))
            return false;
        QByteArrayView text;
        if (!Characters(m_at, end, true, false, m_scratch, text))
            return false;
        Text(text, false);
        return true;
    }

    bool ParseComment()
    {
        const qsizetype from = m_at + 4;
        const qsizetype end = m_bytes.indexOf("--", from);
        if (end < 0 || At(end + 2) != '>')
            return false;
        QByteArrayView text;
        if (!Characters(from, end, false, false, m_scratch, text))
            return false;
        m_at = end + 3;
        Comment(text);
        return true;
    }

    bool ParseCharacterData()
    {
        const qsizetype from = m_at + 9;
        const qsizetype end = m_bytes.indexOf("]]>", from);
        if (end < 0)
            return false;
        QByteArrayView text;
        if (!Characters(from, end, false, false, m_scratch, text))
            return false;
        m_at = end + 3;
        Text(text, true);
        return true;
    }

    // The steps below are the general reader's, token for token.

    bool StartElement(QByteArrayView name)
    {
        if (++m_depth > kMaxXmlDepth)
            return false;
        if (m_settingsDepth > 0)
        {
            m_writer->Start(name, m_attributes);
            return true;
        }
        IntroductionNode(m_depth, false, QByteArrayView());
        if (m_depth == 1)
        {
            for (const Attribute& attribute : m_attributes)
            {
                if (attribute.first == "XlfFile")
                {
                    m_result.hasXlfFile = true;
                    m_result.xlfFile = Utf8Text(attribute.second);
                }
            }
        }
        else if (m_depth == 2)
        {
            if (!m_collecting && name == m_firstTag)
                m_collecting = true;
            m_element = nullptr;
            if (m_collecting)
            {
                WorkflowElementData candidate;
                candidate.tag = QString::fromLatin1(name);
                for (const Attribute& attribute : m_attributes)
                {
                    const int index = AttributeIndexOf(attribute.first);
                    if (index < 0)
                        continue;
                    candidate.values[size_t(index)] = Utf8Text(attribute.second);
                    candidate.present[size_t(index)] = true;
                }
                if (!m_keep || m_keep(m_result, candidate))
                {
                    m_result.elements.append(std::move(candidate));
                    m_element = &m_result.elements.last();
                }
            }
        }
        else if (m_depth == 3 && m_element)
        {
            if (!m_element->hasIntroduction && name == "Introduction")
            {
                m_element->hasIntroduction = true;
                m_introductionDepth = m_depth;
                m_introductionFirstSeen = false;
            }
            else if (!m_element->hasSettings && name == "Settings")
            {
                m_element->hasSettings = true;
                m_settingsDepth = m_depth;
                m_settings.clear();
                // Rewritten markup is about as long as what is left of the file, in the common
                // case of one workflow per file: one allocation rather than a series of growths.
                if (m_settings.capacity() < 4096)
                    m_settings.reserve(size_t(qMin<qsizetype>(m_bytes.size() - m_at, 64 * 1024)));
                m_writer = std::make_unique<ByteWriter>(m_settings);
            }
        }
        return true;
    }

    void EndElement(QByteArrayView name)
    {
        if (m_settingsDepth > 0)
        {
            if (m_depth == m_settingsDepth)
            {
                m_writer->Finish();
                m_writer.reset();
                // Settings without children stay a null text, as the general reader leaves them.
                // Markup in plain ASCII, as nearly all is, is its own Latin-1: kept as it stands,
                // of exactly its size, for the record keeps it for its life.
                const QByteArrayView markup(m_settings);
                if (markup.isEmpty())
                    m_element->settings = CompactText();
                else if (IsAscii(markup))
                    m_element->settings = CompactText::FromLatin1(markup.toByteArray());
                else
                    m_element->settings = CompactText(Utf8Text(markup));
                m_settingsDepth = 0;
            }
            else
            {
                m_writer->End(name);
            }
        }
        else if (m_depth == m_introductionDepth)
        {
            m_introductionDepth = 0;
        }
        --m_depth;
    }

    void Text(QByteArrayView text, bool characterData)
    {
        // The document writer leaves out text made only of blanks (in the widest sense).
        if (!characterData && IsDroppedText(text))
            return;
        if (m_settingsDepth > 0)
            m_writer->Text(text, characterData);
        else
            IntroductionNode(m_depth + 1, true, text);
    }

    void Comment(QByteArrayView text)
    {
        if (m_settingsDepth > 0)
            m_writer->Comment(text);
        else
            IntroductionNode(m_depth + 1, false, QByteArrayView());
    }

    // A node directly inside the Introduction being read: only its first one counts.
    void IntroductionNode(int nodeDepth, bool isText, QByteArrayView text)
    {
        if (m_introductionDepth == 0 || nodeDepth != m_introductionDepth + 1 || m_introductionFirstSeen)
            return;
        m_introductionFirstSeen = true;
        if (isText)
            m_element->introduction = Utf8Text(text.data() ? text : QByteArrayView(""));
    }

    QByteArrayView m_bytes;
    const QByteArray m_firstTag;
    const ElementFilter& m_keep;
    qsizetype m_at = 0;
    std::vector<QByteArrayView> m_open;
    std::vector<Attribute> m_attributes;
    std::vector<QByteArray> m_values;
    QByteArray m_scratch;

    WorkflowFileData m_result;
    int m_depth = 0;
    bool m_collecting;
    WorkflowElementData* m_element = nullptr;
    int m_introductionDepth = 0;
    bool m_introductionFirstSeen = false;
    int m_settingsDepth = 0;
    std::string m_settings;
    std::unique_ptr<ByteWriter> m_writer;
};

} // namespace

bool ScanCommonWorkflowFile(const QByteArray& bytes, const QString& firstTag, WorkflowFileData& data,
                            const ElementFilter& keep)
{
    Scan scan(bytes, firstTag, keep);
    return scan.Run(data);
}

} // namespace Velmora::WorkflowCore
