// SPDX-License-Identifier: MIT
#include "util/XmlFiler.h"

#include "util/FileUtil.h"
#include "util/XlfCatalog.h"

#include <algorithm>
#include <functional>

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTextStream>
#include <QTimeZone>
#include <QXmlStreamReader>

namespace Velmora::WorkflowCore {

Q_LOGGING_CATEGORY(lcXml, "velmora.workflowcore.xml", QtWarningMsg)

namespace {

const int kIndent = 4;

QStringList PathPieces(const QString& path)
{
    QString normal = path.trimmed();
    normal.replace(QLatin1Char('\\'), QLatin1Char('/'));
    return normal.split(QLatin1Char('/'), Qt::SkipEmptyParts);
}

bool IsAbsolutePath(const QString& path)
{
    const QString trimmed = path.trimmed();
    return trimmed.startsWith(QLatin1Char('/')) || trimmed.startsWith(QLatin1Char('\\'));
}

} // namespace

bool XmlDepthIsBounded(const QByteArray& markup)
{
    QXmlStreamReader reader(markup);
    int depth = 0;
    while (!reader.atEnd())
    {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::StartElement)
        {
            if (++depth > kMaxXmlDepth)
                return false;
        }
        else if (token == QXmlStreamReader::EndElement)
        {
            --depth;
        }
    }
    return true;
}

namespace {

// Characters no XML file may hold: control characters other than tab, line feed and carriage
// return, U+FFFE and U+FFFF, and half a surrogate pair (an encoding such as UTF-7 decodes into
// one); the writer would put the first as they are and the last as a replacement character.
bool IsDroppedAt(QStringView text, qsizetype i)
{
    const QChar c = text[i];
    if (c.isHighSurrogate())
        return i + 1 >= text.size() || !text[i + 1].isLowSurrogate();
    if (c.isLowSurrogate())
        return i == 0 || !text[i - 1].isHighSurrogate();
    const char16_t u = c.unicode();
    return !(u == u'\t' || u == u'\n' || u == u'\r' || (u >= 0x20 && u != 0xFFFE && u != 0xFFFF));
}

} // namespace

bool HoldsNonXmlCharacter(QStringView text)
{
    for (qsizetype i = 0; i < text.size(); ++i)
    {
        if (IsDroppedAt(text, i))
            return true;
    }
    return false;
}

bool RemoveNonXmlCharacters(QString& text)
{
    if (!HoldsNonXmlCharacter(text))
        return false;
    QString kept;
    kept.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i)
    {
        if (!IsDroppedAt(text, i))
            kept.append(text[i]);
    }
    text = kept;
    return true;
}

namespace {

// A save killed between naming its new file and renaming it over the old one leaves the new file
// behind under a temporary name: the file's name, a dot and six letters or digits. One that nobody
// has written to for this long belongs to no save still going on.
const qint64 kStaleTemporaryMs = 5000;

bool IsTemporaryNameOf(const QString& name, const QString& prefix)
{
    if (name.size() != prefix.size() + 6 || !name.startsWith(prefix))
        return false;
    for (qsizetype i = prefix.size(); i < name.size(); ++i)
    {
        const char16_t c = name.at(i).unicode();
        if (!((c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9')))
            return false;
    }
    return true;
}

// Removes what killed saves of path left behind, so that none stays for good.
void RemoveStaleTemporaries(const QString& path)
{
    const QFileInfo target(path);
    const QString prefix = target.fileName() + QLatin1Char('.');
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QDirIterator it(target.absolutePath(), QDir::Files | QDir::Hidden | QDir::System);
    while (it.hasNext())
    {
        it.next();
        if (!IsTemporaryNameOf(it.fileName(), prefix))
            continue;
        const QFileInfo info = it.fileInfo();
        if (info.isSymLink() || info.lastModified().toUTC().msecsTo(now) < kStaleTemporaryMs)
            continue;
        QFile::remove(info.filePath());
    }
}

// Files are written in UTF-8 whatever the declaration they were read with says: an encoding the
// writer does not know is written as UTF-8 all the same, and a declaration left naming it would
// have every reader decode the new file wrongly. So the declaration says UTF-8 whenever it names
// an encoding.
void DeclareUtf8(QDomDocument& document)
{
    QDomProcessingInstruction declaration = document.firstChild().toProcessingInstruction();
    if (declaration.isNull() || declaration.target() != QLatin1String("xml"))
        return;
    static const QRegularExpression encoding(QStringLiteral("(encoding\\s*=\\s*)(['\"])([^'\"]*)\\2"));
    const QString data = declaration.data();
    const QRegularExpressionMatch match = encoding.match(data);
    if (!match.hasMatch() || match.captured(3).compare(QLatin1String("UTF-8"), Qt::CaseInsensitive) == 0)
        return;
    QString changed = data;
    changed.replace(match.capturedStart(3), match.capturedLength(3), QStringLiteral("UTF-8"));
    declaration.setData(changed);
}

// The node after this one in document order, depth first without recursion (files may nest
// deep): its first child, else its next sibling, else the next sibling of the nearest element
// above it that has one; null at the end of the document.
QDomNode NextInDocumentOrder(const QDomNode& from)
{
    if (from.hasChildNodes())
        return from.firstChild();
    QDomNode node = from;
    while (!node.isNull() && node.nextSibling().isNull())
        node = node.parentNode().isElement() ? node.parentNode() : QDomNode();
    return node.isNull() ? node : node.nextSibling();
}

// The writer ends every processing instruction with a line break, also inside an element, where
// it joins the text that follows. Reading takes that one break off again, so that a file the
// filer wrote reads as it was before, and text after an instruction does not grow by a line
// with every save.
void DropWrittenBreaksAfterInstructions(QDomDocument& document)
{
    QDomNode node = document.documentElement();
    while (!node.isNull())
    {
        if (node.isProcessingInstruction())
        {
            QDomNode next = node.nextSibling();
            if (next.isText() && !next.isCDATASection() && next.nodeValue().startsWith(QLatin1Char('\n')))
            {
                const QString rest = next.nodeValue().mid(1);
                if (rest.isEmpty())
                    node.parentNode().removeChild(next);
                else
                    next.setNodeValue(rest);
            }
        }
        node = NextInDocumentOrder(node);
    }
}

// Whether the instruction, as the writer writes it, reads back inside an element. The reader takes
// some targets no name may be, such as one running into a backquote, when "?>" follows at once;
// written back with the space the writer puts after a target, the file can no longer be read.
bool ReadsBackAsWritten(const QDomProcessingInstruction& instruction)
{
    QString markup;
    QTextStream stream(&markup);
    instruction.save(stream, 0);
    stream.flush();
    QXmlStreamReader reader(QStringLiteral("<r>") + markup + QStringLiteral("</r>"));
    while (!reader.atEnd())
        reader.readNext();
    return !reader.hasError();
}

void KeepOnlyXmlCharacters(QDomDocument& document)
{
    QList<QDomNode> doomed;
    QDomNode node = document.firstChild();
    while (!node.isNull())
    {
        if (node.isElement())
        {
            QDomElement element = node.toElement();
            const QDomNamedNodeMap attributes = element.attributes();
            // An attribute cannot be renamed either: one whose name no file may hold goes.
            QStringList doomedAttributes;
            for (int i = 0; i < attributes.count(); ++i)
            {
                QDomAttr attribute = attributes.item(i).toAttr();
                QString name = attribute.name();
                if (RemoveNonXmlCharacters(name))
                {
                    doomedAttributes.append(attribute.name());
                    continue;
                }
                QString value = attribute.value();
                if (RemoveNonXmlCharacters(value))
                    attribute.setValue(value);
            }
            for (const QString& name : std::as_const(doomedAttributes))
                element.removeAttribute(name);
        }
        else if (node.isProcessingInstruction())
        {
            QDomProcessingInstruction instruction = node.toProcessingInstruction();
            QString target = instruction.target();
            QString data = instruction.data();
            if (RemoveNonXmlCharacters(data))
                instruction.setData(data);
            // A target cannot be renamed: an instruction no file may hold goes altogether.
            const bool declaration = node == document.firstChild() && target == QLatin1String("xml");
            if (RemoveNonXmlCharacters(target) || (!declaration && !ReadsBackAsWritten(instruction)))
                doomed.append(node);
        }
        else if (node.isCharacterData())
        {
            QString value = node.nodeValue();
            if (RemoveNonXmlCharacters(value))
                node.setNodeValue(value);
        }
        node = NextInDocumentOrder(node);
    }
    for (QDomNode& instruction : doomed)
    {
        // The texts on either side of it become one, as they read back once written.
        QDomNode before = instruction.previousSibling();
        QDomNode after = instruction.nextSibling();
        QDomNode parent = instruction.parentNode();
        parent.removeChild(instruction);
        if (before.nodeType() == QDomNode::TextNode && after.nodeType() == QDomNode::TextNode)
        {
            before.setNodeValue(before.nodeValue() + after.nodeValue());
            parent.removeChild(after);
        }
    }
}

} // namespace

XmlFiler::XmlFiler(bool translate) : m_translate(translate) {}

bool XmlFiler::Open(const QString& path)
{
    // Only a regular file is a file here: a pipe or a device would block the read or never end.
    if (!IsRegularFile(path))
        return false;

    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
    {
        const QString message = QStringLiteral("XmlFiler: Failed to open file %1. %2 (Error code: %3)")
                                    .arg(path, file.errorString(), QString::number(int(file.error())));
        qCDebug(lcXml).noquote() << message;
        file.close();
        return false;
    }

    const QByteArray content = file.readAll();
    file.close();
    if (!XmlDepthIsBounded(content))
    {
        qCDebug(lcXml).noquote() << QStringLiteral("XmlFiler: %1 nests deeper than %2 elements")
                                        .arg(path, QString::number(kMaxXmlDepth));
        return false;
    }

    QDomDocument document;
    QString error;
    int line = 0;
    int column = 0;
    if (!document.setContent(content, &error, &line, &column))
    {
        qCDebug(lcXml).noquote() << QStringLiteral("XmlFiler: %1 in %2 at %3:%4")
                                        .arg(error, path, QString::number(line), QString::number(column));
        return false;
    }

    DropWrittenBreaksAfterInstructions(document);
    KeepOnlyXmlCharacters(document);
    m_document = document;
    m_current = m_document.documentElement();
    m_savedPositions.clear();
    m_fileName = path;
    return true;
}

namespace {

// Writes a file as every save of the library does: atomically (the previous file stays whole
// unless the new one is committed), never through a link, never over a file the user made
// read-only, and with the permissions of the file it replaces.
bool SaveAtomically(const QString& path, const std::function<void(QIODevice&)>& write)
{
    // A link is never written through: the file it leads to is not the one asked for.
    const QFileInfo existing(path);
    if (existing.isSymLink())
        return false;
    // Replacing the file by renaming would slip past a file the user made read-only.
    if (existing.exists() && !existing.isWritable())
        return false;
    const bool replacing = existing.exists();
    // The "user" flags describe the running user, not the file: only owner, group and other count.
    const QFileDevice::Permissions permissions =
        replacing ? existing.permissions() &
                        ~(QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser)
                  : QFileDevice::Permissions();

    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
    {
        qCDebug(lcXml).noquote()
            << QStringLiteral("XmlFiler: Failed to save file %1. %2").arg(path, file.errorString());
        return false;
    }
    write(file);
    if (!file.commit())
        return false;
    RemoveStaleTemporaries(path);
    // The new file takes the place of the old one with the old one's permissions.
    if (replacing)
        QFile::setPermissions(path, permissions);
    return true;
}

} // namespace

bool SaveXmlBytes(const QString& path, const QByteArray& bytes)
{
    return SaveAtomically(path, [&bytes](QIODevice& file) { file.write(bytes); });
}

bool XmlFiler::Save(const QString& path)
{
    if (m_document.isNull() || m_document.documentElement().isNull())
        return false;
    return SaveAtomically(path, [this](QIODevice& file) {
        DeclareUtf8(m_document);
        KeepOnlyXmlCharacters(m_document);
        QTextStream stream(&file);
        m_document.save(stream, kIndent);
        stream.flush();
    });
}

void XmlFiler::Create(const QString& rootName)
{
    m_document = QDomDocument();
    m_savedPositions.clear();
    m_current = QDomNode();
    GoToOrCreatePath(rootName, true, false);
}

void XmlFiler::EnsureXmlDeclaration()
{
    const QDomNode existing = m_document.namedItem(QStringLiteral("xml"));
    if (existing.isProcessingInstruction() &&
        existing.toProcessingInstruction().target() == QLatin1String("xml"))
        return;
    const QDomProcessingInstruction declaration =
        m_document.createProcessingInstruction(QStringLiteral("xml"), QStringLiteral("version=\"1.0\""));
    // The declaration opens the file: after a comment or an instruction that stands before the
    // root, it would make the whole file unreadable.
    const QDomNode first = m_document.firstChild();
    if (first.isNull())
        m_document.appendChild(declaration);
    else
        m_document.insertBefore(declaration, first);
}

bool XmlFiler::GoToFirstChild()
{
    if (m_current.isNull())
        return false;
    const QDomElement child = m_current.firstChildElement();
    if (child.isNull())
        return false;
    m_current = child;
    return true;
}

bool XmlFiler::GoToNextSibling()
{
    if (m_current.isNull())
        return false;
    const QDomElement sibling = m_current.nextSiblingElement();
    if (sibling.isNull())
        return false;
    m_current = sibling;
    return true;
}

bool XmlFiler::GoToPath(const QString& path)
{
    return FollowPath(path, false, false);
}

bool XmlFiler::GoToOrCreatePath(const QString& path, bool create, bool appendNewLast)
{
    return FollowPath(path, create, appendNewLast);
}

bool XmlFiler::FollowPath(const QString& path, bool create, bool appendNewLast)
{
    if (path.trimmed().isEmpty())
        return true;

    const QDomNode start = m_current;
    QStringList pieces = PathPieces(path);
    if (IsAbsolutePath(path))
    {
        m_current = m_document.documentElement();
        if (!pieces.isEmpty() && !m_current.isNull() && pieces.first() == m_current.toElement().tagName())
            pieces.removeFirst();
    }

    for (int i = 0; i < pieces.size(); ++i)
    {
        const QString& piece = pieces.at(i);
        const bool last = i == pieces.size() - 1;
        QDomElement child;
        if (!m_current.isNull() && !(create && appendNewLast && last))
            child = m_current.firstChildElement(piece);
        if (child.isNull())
        {
            if (!create)
            {
                m_current = start;
                return false;
            }
            child = m_document.createElement(piece);
            if (child.isNull())
            {
                m_current = start;
                return false;
            }
            if (m_current.isNull())
            {
                // A document holds one element; with one already there, a new element goes below it.
                if (m_document.documentElement().isNull())
                    m_document.appendChild(child);
                else
                    m_document.documentElement().appendChild(child);
            }
            else
            {
                m_current.appendChild(child);
            }
        }
        m_current = child;
    }
    return true;
}

void XmlFiler::RemoveElement(const QString& path)
{
    const QDomNode remembered = m_current;
    QDomNode parent;
    if (GoToPath(path))
    {
        const QDomNode doomed = m_current;
        parent = doomed.parentNode();
        if (!parent.isNull())
            parent.removeChild(doomed);
    }
    m_current = remembered;
    if (m_current.isNull())
        m_current = parent;
}

QString XmlFiler::GetCurrentPath() const
{
    if (m_current.isNull())
        return QString();
    QStringList names;
    const QDomElement root = m_document.documentElement();
    for (QDomNode node = m_current; !node.isNull() && node.isElement(); node = node.parentNode())
    {
        names.prepend(node.toElement().tagName());
        if (node == root)
            break;
    }
    return QLatin1Char('/') + names.join(QLatin1Char('/'));
}

QString XmlFiler::GetAttribute(const QString& name, const QString& defaultValue) const
{
    const QDomElement element = m_current.toElement();
    if (element.isNull() || !element.hasAttribute(name))
        return defaultValue;
    return TranslatedText(element.attribute(name));
}

bool XmlFiler::GetBoolAttribute(const QString& name, bool defaultValue) const
{
    const QDomElement element = m_current.toElement();
    if (element.isNull())
        return defaultValue;
    const QString text = element.attribute(name);
    if (text.isEmpty())
        return defaultValue;
    if (text.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0)
        return true;
    if (text.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0)
        return false;
    bool ok = false;
    const qulonglong number = text.toULongLong(&ok, 10);
    return ok ? number != 0 : defaultValue;
}

QDateTime XmlFiler::GetDateTimeAttribute(const QString& name, const QDateTime& defaultValue) const
{
    const QDomElement element = m_current.toElement();
    if (element.isNull())
        return defaultValue;
    const QString text = element.attribute(name);
    if (text.isEmpty())
        return defaultValue;
    // The written time is UTC whatever offset the text carries; readers see it in local time.
    const QDateTime value = DateFromUtcText(text);
    return value.isValid() ? value : defaultValue;
}

bool XmlFiler::SetAttribute(const QString& name, const QString& value)
{
    QDomElement element = m_current.toElement();
    if (element.isNull())
        return false;
    element.setAttribute(name, value);
    return true;
}

QString XmlFiler::GetText() const
{
    const QDomElement element = m_current.toElement();
    if (element.isNull() || !element.hasChildNodes())
        return QString();
    const QDomNode first = element.firstChild();
    if (!first.isText() && !first.isCDATASection())
        return QString();
    // nodeValue, not the character-data view: the latter loses CDATA content in this Qt.
    return TranslatedText(first.nodeValue());
}

QString XmlFiler::GetInnerXml() const
{
    const QDomElement element = m_current.toElement();
    if (element.isNull())
        return QString();
    QString xml;
    QTextStream stream(&xml);
    for (QDomNode child = element.firstChild(); !child.isNull(); child = child.nextSibling())
        child.save(stream, kIndent);
    stream.flush();
    return xml;
}

bool XmlFiler::AppendXml(const QString& fragment)
{
    const QString wrapped = QStringLiteral("<Root>") + fragment + QStringLiteral("</Root>");
    if (!XmlDepthIsBounded(wrapped.toUtf8()))
        return false;
    QDomDocument wrapper;
    if (!wrapper.setContent(wrapped))
        return false;
    const QDomElement wrapperRoot = wrapper.documentElement();
    if (!wrapperRoot.hasChildNodes())
        return false;
    if (m_document.documentElement().isNull())
        GoToOrCreatePath(QStringLiteral("Root"), true, false);
    if (m_current.isNull())
        return false;
    const QDomNode imported = m_document.importNode(wrapperRoot, true);
    while (imported.hasChildNodes())
        m_current.appendChild(imported.firstChild());
    return true;
}

void XmlFiler::PushPosition()
{
    m_savedPositions.push_back(m_current);
}

void XmlFiler::PopPosition()
{
    if (m_savedPositions.empty())
        return;
    m_current = m_savedPositions.back();
    m_savedPositions.pop_back();
}

QString XmlFiler::TranslatedText(const QString& text) const
{
    if (!m_translate || !m_translator || !IsTranslatableText(text))
        return text;
    const QString translation = m_translator->Lookup(SourceFileKey(m_fileName), TranslationUnitId(text));
    return translation.isNull() ? text : translation;
}

} // namespace Velmora::WorkflowCore
