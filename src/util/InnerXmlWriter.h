// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// Writing an element's children out again, token by token, exactly as the document writer
// writes each child node with an indent of four. Both streaming readers of workflow files use it:
// the general one on UTF-16 texts, the one for the common shape of a file on its UTF-8 bytes.
namespace Velmora::WorkflowCore {

// The order in which the document writes the attributes of an element whose attributes have
// these names, in document order: the document keeps them in a hash keyed by name and writes
// them in the hash's order, which follows from the names and the order they were added in. A
// hash filled the same way in this process gives the same order.
std::vector<qsizetype> DocumentAttributeOrder(const QStringList& names);

namespace InnerXml {

inline void Append(QString& out, const char* literal)
{
    out.append(QLatin1String(literal));
}
inline void Append(std::string& out, const char* literal)
{
    out.append(literal);
}
inline void Append(QString& out, QStringView text)
{
    out.append(text);
}
inline void Append(std::string& out, QByteArrayView text)
{
    out.append(text.data(), size_t(text.size()));
}
inline void AppendSpaces(QString& out, qsizetype count)
{
    out.resize(out.size() + count, QLatin1Char(' '));
}
inline void AppendSpaces(std::string& out, qsizetype count)
{
    out.append(size_t(count), ' ');
}
// The names of an element's attributes, one after another, as the key of its shape.
inline void AppendKey(QString& key, QStringView name)
{
    key.append(name);
    key.append(QChar(0));
}
inline void AppendKey(QByteArray& key, QByteArrayView name)
{
    const qsizetype at = key.size();
    key.resize(at + name.size() + 1);
    std::memcpy(key.data() + at, name.data(), size_t(name.size()));
    key[at + name.size()] = '\0';
}
inline char16_t Unit(QStringView text, qsizetype i)
{
    return text[i].unicode();
}
inline char16_t Unit(QByteArrayView text, qsizetype i)
{
    return static_cast<unsigned char>(text[i]);
}
inline QString NameText(QStringView name)
{
    return name.toString();
}
inline QString NameText(QByteArrayView name)
{
    return QString::fromUtf8(name);
}

// Escapes a text the way the document writer does: in attribute values the quote and the
// line-end and tab characters too; a ">" only where it would close a character-data section.
// Every character escaped is ASCII, so UTF-8 bytes are escaped exactly as their characters are.
template <typename Out, typename View> void AppendEncoded(Out& out, View text, bool attribute)
{
    qsizetype start = 0;
    const qsizetype length = text.size();
    const auto flush = [&](qsizetype at, const char* replacement) {
        Append(out, text.sliced(start, at - start));
        Append(out, replacement);
        start = at + 1;
    };
    for (qsizetype i = 0; i < length; ++i)
    {
        switch (Unit(text, i))
        {
        case u'<':
            flush(i, "&lt;");
            break;
        case u'&':
            flush(i, "&amp;");
            break;
        case u'"':
            if (attribute)
                flush(i, "&quot;");
            break;
        case u'>':
            if (i >= 2 && Unit(text, i - 1) == u']' && Unit(text, i - 2) == u']')
                flush(i, "&gt;");
            break;
        case u'\r':
            flush(i, "&#xd;");
            break;
        case u'\n':
            if (attribute)
                flush(i, "&#xa;");
            break;
        case u'\t':
            if (attribute)
                flush(i, "&#x9;");
            break;
        default:
            break;
        }
    }
    Append(out, text.sliced(start));
}

} // namespace InnerXml

// Writes the children of one element. An element or comment starts on a line of its own unless
// a text precedes it, and ends its line unless a text follows it; what follows is only known
// later, so the line end of the previous sibling is settled when the next one arrives.
// Out is QString with QStringView texts, or std::string with UTF-8 QByteArrayView texts.
template <typename Out, typename View> class InnerXmlWriter
{
public:
    // One attribute as read: its qualified name and its value, entities expanded.
    using Attribute = std::pair<View, View>;

    explicit InnerXmlWriter(Out& out) : m_out(out) { m_frames.emplace_back(); }

    void Text(View text, bool characterData)
    {
        BeginChild(true);
        if (!characterData)
        {
            InnerXml::AppendEncoded(m_out, text, false);
            return;
        }
        InnerXml::Append(m_out, "<![CDATA[");
        // A section cannot hold its own end: it is split where the text holds one.
        qsizetype start = 0;
        for (qsizetype i = 0; i + 2 < text.size(); ++i)
        {
            if (InnerXml::Unit(text, i) == u']' && InnerXml::Unit(text, i + 1) == u']' &&
                InnerXml::Unit(text, i + 2) == u'>')
            {
                InnerXml::Append(m_out, text.sliced(start, i + 2 - start));
                InnerXml::Append(m_out, "]]><![CDATA[");
                start = i + 2;
            }
        }
        InnerXml::Append(m_out, text.sliced(start));
        InnerXml::Append(m_out, "]]>");
    }

    void Comment(View text)
    {
        const int depth = Depth();
        if (!BeginChild(false))
            Indent(depth);
        InnerXml::Append(m_out, "<!--");
        InnerXml::Append(m_out, text);
        InnerXml::Append(m_out, "-->");
        m_frames.back().lineEndDue = true;
    }

    void Start(View name, const std::vector<Attribute>& attributes)
    {
        const int depth = Depth();
        if (!BeginChild(false))
            Indent(depth);
        InnerXml::Append(m_out, "<");
        InnerXml::Append(m_out, name);
        WriteAttributes(attributes);
        Frame frame;
        frame.startOpen = true;
        m_frames.push_back(frame);
    }

    // The end of the innermost open element, whose name is given again.
    void End(View name)
    {
        if (m_frames.size() < 2)
            return;
        const Frame frame = m_frames.back();
        m_frames.pop_back();
        if (frame.startOpen)
        {
            InnerXml::Append(m_out, "/>");
        }
        else
        {
            if (frame.lineEndDue)
                InnerXml::Append(m_out, "\n");
            if (!frame.lastIsText)
                Indent(Depth());
            InnerXml::Append(m_out, "</");
            InnerXml::Append(m_out, name);
            InnerXml::Append(m_out, ">");
        }
        m_frames.back().lineEndDue = true;
    }

    // The last child's line end, with no sibling after it.
    void Finish()
    {
        if (m_frames.back().lineEndDue)
            InnerXml::Append(m_out, "\n");
        m_frames.back().lineEndDue = false;
    }

private:
    struct Frame
    {
        bool startOpen = false;
        bool hasChild = false;
        bool lastIsText = false;
        bool lineEndDue = false;
    };

    // The depth of a new child of the innermost open element, counted from 1.
    int Depth() const { return static_cast<int>(m_frames.size()); }

    void Indent(int depth) { InnerXml::AppendSpaces(m_out, qsizetype(depth) * 4); }

    // Settles what the previous sibling (or the parent's start tag) left open; returns whether
    // the previous sibling is a text.
    bool BeginChild(bool isText)
    {
        Frame& frame = m_frames.back();
        if (frame.startOpen)
        {
            InnerXml::Append(m_out, isText ? ">" : ">\n");
            frame.startOpen = false;
        }
        else if (frame.lineEndDue && !isText)
        {
            InnerXml::Append(m_out, "\n");
        }
        frame.lineEndDue = false;
        const bool previousIsText = frame.hasChild && frame.lastIsText;
        frame.hasChild = true;
        frame.lastIsText = isText;
        return previousIsText;
    }

    void WriteAttributes(const std::vector<Attribute>& attributes)
    {
        const size_t count = attributes.size();
        if (count == 1)
            WriteAttribute(attributes.front());
        if (count < 2)
            return;
        for (const qsizetype i : Order(attributes))
            WriteAttribute(attributes[size_t(i)]);
    }

    // Element shapes repeat across the files a thread reads; the order of each is worked out once.
    static const std::vector<qsizetype>& Order(const std::vector<Attribute>& attributes)
    {
        using Key = std::conditional_t<std::is_same_v<Out, QString>, QString, QByteArray>;
        thread_local QHash<Key, std::vector<qsizetype>> orders;
        thread_local Key key;
        key.resize(0);
        for (const Attribute& attribute : attributes)
            InnerXml::AppendKey(key, attribute.first);
        auto found = orders.constFind(key);
        if (found == orders.constEnd())
        {
            QStringList names;
            for (const Attribute& attribute : attributes)
                names.append(InnerXml::NameText(attribute.first));
            // A file of endless different shapes must not grow this.
            if (orders.size() > 4096)
                orders.clear();
            found = orders.insert(key, DocumentAttributeOrder(names));
        }
        return *found;
    }

    void WriteAttribute(const Attribute& attribute)
    {
        InnerXml::Append(m_out, " ");
        InnerXml::Append(m_out, attribute.first);
        InnerXml::Append(m_out, "=\"");
        InnerXml::AppendEncoded(m_out, attribute.second, true);
        InnerXml::Append(m_out, "\"");
    }

    Out& m_out;
    std::vector<Frame> m_frames;
};

} // namespace Velmora::WorkflowCore
