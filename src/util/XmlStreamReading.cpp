// SPDX-License-Identifier: MIT
#include "XmlStreamReading.h"

#include "FileUtil.h"
#include "InnerXmlWriter.h"
#include "WorkflowFileScanner.h"
#include "XlfCatalog.h"
#include "XmlFiler.h"
#include "platform/Platform.h"

#include <QFile>
#include <QHash>
#include <QTextStream>
#include <QXmlStreamReader>

#include <memory>
#include <vector>

namespace Velmora::WorkflowCore {

namespace {

const int kIndent = 4;

const QString kIntroduction = QStringLiteral("Introduction");
const QString kSettings = QStringLiteral("Settings");
const QString kXlfFile = QStringLiteral("XlfFile");

const std::array<QString, WorkflowAttributeCount>& AttributeNames()
{
    static const std::array<QString, WorkflowAttributeCount> names = {
        QStringLiteral("Plugin"),
        QStringLiteral("IsTemplate"),
        QStringLiteral("IsReadOnly"),
        QStringLiteral("TemplateId"),
        QStringLiteral("Id"),
        QStringLiteral("HelpId"),
        QStringLiteral("Name"),
        QStringLiteral("Description"),
        QStringLiteral("Tooltip"),
        QStringLiteral("Tag"),
        QStringLiteral("Keywords"),
        QStringLiteral("UIFile"),
        QStringLiteral("PrimaryProduct"),
        QStringLiteral("TargetProduct"),
        QStringLiteral("RequiredProducts"),
        QStringLiteral("RequiredProductsDisplayText"),
        QStringLiteral("CreatedDate"),
        QStringLiteral("LastModifiedDate"),
        QStringLiteral("TemplateImage"),
        QStringLiteral("ModifiedImage"),
    };
    return names;
}

int AttributeIndex(QStringView name)
{
    static const QHash<QString, int> indexes = [] {
        QHash<QString, int> result;
        for (int i = 0; i < WorkflowAttributeCount; ++i)
            result.insert(AttributeNames()[i], i);
        return result;
    }();
    return indexes.value(name.toString(), -1);
}

// The document writer leaves out text made only of blanks: such a text is no node at all, so it
// neither counts as an element's first child nor shapes the indentation around it.
bool IsDroppedText(const QXmlStreamReader& reader)
{
    if (reader.isCDATA())
        return false;
    const QStringView text = reader.text();
    for (const QChar c : text)
    {
        if (!c.isSpace())
            return false;
    }
    return true;
}

// The filer drops, on reading, every character no XML file may hold and the one line break its
// writer puts after a processing instruction. Both are rare in a workflow file; a file with either
// is read through the document, which applies them exactly, rather than following them here.
bool AttributesHoldDroppedCharacter(const QXmlStreamAttributes& attributes)
{
    for (const QXmlStreamAttribute& attribute : attributes)
    {
        if (HoldsNonXmlCharacter(attribute.qualifiedName()) || HoldsNonXmlCharacter(attribute.value()))
            return true;
    }
    return false;
}

using StreamWriter = InnerXmlWriter<QString, QStringView>;

// The attributes of the element the reader is on, as the writer takes them; they are valid until
// the reader moves on.
std::vector<StreamWriter::Attribute> WriterAttributes(const QXmlStreamAttributes& attributes)
{
    std::vector<StreamWriter::Attribute> result;
    result.reserve(size_t(attributes.size()));
    for (const QXmlStreamAttribute& attribute : attributes)
        result.emplace_back(attribute.qualifiedName(), attribute.value());
    return result;
}

void FillAttributes(const QXmlStreamAttributes& attributes, WorkflowElementData& element)
{
    for (const QXmlStreamAttribute& attribute : attributes)
    {
        const int index = AttributeIndex(attribute.qualifiedName());
        if (index < 0)
            continue;
        element.values[index] = attribute.value().toString();
        element.present[index] = true;
    }
}

// Applies the filer's bound on nesting as the parse goes down: true while the parse may go on.
class DepthBound
{
public:
    explicit DepthBound(const QByteArray& bytes) : m_bytes(bytes) {}
    bool Allows(int depth)
    {
        if (depth <= kMaxXmlDepth || m_bounded)
            return true;
        m_bounded = XmlDepthIsBounded(m_bytes);
        return m_bounded;
    }

private:
    const QByteArray& m_bytes;
    bool m_bounded = false;
};

QStringList PathPieces(const QString& path)
{
    QString normal = path.trimmed();
    normal.replace(QLatin1Char('\\'), QLatin1Char('/'));
    return normal.split(QLatin1Char('/'), Qt::SkipEmptyParts);
}

} // namespace

bool ReadRegularFileBytes(const QString& path, QByteArray& bytes)
{
    // Only a regular file is a file here: a pipe or a device would block the read or never end.
    return !path.isEmpty() && Platform::ReadRegularFile(path, bytes);
}

std::vector<qsizetype> DocumentAttributeOrder(const QStringList& names)
{
    QHash<QString, qsizetype> hash;
    for (qsizetype i = 0; i < names.size(); ++i)
        hash.insert(names.at(i), i);
    std::vector<qsizetype> order;
    order.reserve(size_t(hash.size()));
    for (auto it = hash.cbegin(); it != hash.cend(); ++it)
        order.push_back(it.value());
    return order;
}

QString WorkflowAttributeName(WorkflowAttribute attribute)
{
    return AttributeNames()[attribute];
}

StreamReadResult ParseWorkflowFile(const QByteArray& bytes, const QString& firstTag, WorkflowFileData& data,
                                   const ElementFilter& keep)
{
    if (ScanCommonWorkflowFile(bytes, firstTag, data, keep))
        return StreamReadResult::Read;
    return ParseWorkflowFileWithReader(bytes, firstTag, data, keep);
}

StreamReadResult ParseWorkflowFileWithReader(const QByteArray& bytes, const QString& firstTag,
                                             WorkflowFileData& data, const ElementFilter& keep)
{
    WorkflowFileData result;
    QXmlStreamReader reader(bytes);
    // The document reader takes names as written, prefixes and all.
    reader.setNamespaceProcessing(false);
    DepthBound bound(bytes);

    int depth = 0;
    bool collecting = firstTag.isEmpty();
    WorkflowElementData* element = nullptr; // the root child being read, when it is kept
    int introductionDepth = 0;              // depth of the Introduction being read, 0 when none
    bool introductionFirstSeen = false;
    int settingsDepth = 0; // depth of the Settings being written, 0 when none
    QString settings;
    std::unique_ptr<StreamWriter> writer;

    // A node directly inside the Introduction being read: only its first one counts.
    const auto introductionNode = [&](int nodeDepth, bool isText, QStringView text) {
        if (introductionDepth == 0 || nodeDepth != introductionDepth + 1 || introductionFirstSeen)
            return;
        introductionFirstSeen = true;
        if (isText)
            element->introduction = text.toString();
    };

    while (!reader.atEnd())
    {
        switch (reader.readNext())
        {
        case QXmlStreamReader::StartElement:
        {
            if (!bound.Allows(++depth))
                return StreamReadResult::Unreadable;
            if (AttributesHoldDroppedCharacter(reader.attributes()))
                return StreamReadResult::NeedsDocument;
            const QStringView name = reader.qualifiedName();
            if (settingsDepth > 0)
            {
                writer->Start(name, WriterAttributes(reader.attributes()));
                break;
            }
            introductionNode(depth, false, QStringView());
            if (depth == 1)
            {
                for (const QXmlStreamAttribute& attribute : reader.attributes())
                {
                    if (attribute.qualifiedName() == kXlfFile)
                    {
                        result.hasXlfFile = true;
                        result.xlfFile = attribute.value().toString();
                    }
                }
            }
            else if (depth == 2)
            {
                if (!collecting && name == firstTag)
                    collecting = true;
                element = nullptr;
                if (collecting)
                {
                    WorkflowElementData candidate;
                    candidate.tag = name.toString();
                    FillAttributes(reader.attributes(), candidate);
                    if (!keep || keep(result, candidate))
                    {
                        result.elements.append(std::move(candidate));
                        element = &result.elements.last();
                    }
                }
            }
            else if (depth == 3 && element)
            {
                if (!element->hasIntroduction && name == kIntroduction)
                {
                    element->hasIntroduction = true;
                    introductionDepth = depth;
                    introductionFirstSeen = false;
                }
                else if (!element->hasSettings && name == kSettings)
                {
                    element->hasSettings = true;
                    settingsDepth = depth;
                    settings = QString();
                    writer = std::make_unique<StreamWriter>(settings);
                }
            }
            break;
        }
        case QXmlStreamReader::EndElement:
            if (settingsDepth > 0)
            {
                if (depth == settingsDepth)
                {
                    writer->Finish();
                    writer.reset();
                    // The record keeps this text for its life: no spare capacity.
                    settings.squeeze();
                    element->settings = std::move(settings);
                    settings = QString();
                    settingsDepth = 0;
                }
                else
                {
                    writer->End(reader.qualifiedName());
                }
            }
            else if (depth == introductionDepth)
            {
                introductionDepth = 0;
            }
            --depth;
            break;
        case QXmlStreamReader::Characters:
            if (HoldsNonXmlCharacter(reader.text()))
                return StreamReadResult::NeedsDocument;
            if (IsDroppedText(reader))
                break;
            if (settingsDepth > 0)
                writer->Text(reader.text(), reader.isCDATA());
            else
                introductionNode(depth + 1, true, reader.text());
            break;
        case QXmlStreamReader::Comment:
            if (HoldsNonXmlCharacter(reader.text()))
                return StreamReadResult::NeedsDocument;
            if (settingsDepth > 0)
                writer->Comment(reader.text());
            else
                introductionNode(depth + 1, false, QStringView());
            break;
        case QXmlStreamReader::ProcessingInstruction:
            // Inside the document element the text after an instruction loses a line break.
            if (depth > 0 || HoldsNonXmlCharacter(reader.processingInstructionTarget()) ||
                HoldsNonXmlCharacter(reader.processingInstructionData()))
                return StreamReadResult::NeedsDocument;
            break;
        case QXmlStreamReader::DTD:
        case QXmlStreamReader::EntityReference:
            // Declared entities expand into nodes only the document reader builds.
            return StreamReadResult::NeedsDocument;
        default:
            break;
        }
    }
    if (reader.hasError())
        return StreamReadResult::Unreadable;
    data = std::move(result);
    return StreamReadResult::Read;
}

StreamReadResult ReadWorkflowFileFromDocument(const QString& path, const QString& firstTag,
                                              WorkflowFileData& data)
{
    XmlFiler filer(false);
    if (!filer.Open(path))
        return StreamReadResult::Unreadable;
    WorkflowFileData result;
    const QDomElement root = filer.GetDocumentElement();
    result.hasXlfFile = root.hasAttribute(kXlfFile);
    result.xlfFile = root.attribute(kXlfFile);
    QDomElement child = firstTag.isEmpty() ? root.firstChildElement() : root.firstChildElement(firstTag);
    for (; !child.isNull(); child = child.nextSiblingElement())
    {
        WorkflowElementData element;
        element.tag = child.tagName();
        for (int i = 0; i < WorkflowAttributeCount; ++i)
        {
            const QString& name = AttributeNames()[i];
            element.present[i] = child.hasAttribute(name);
            element.values[i] = child.attribute(name);
        }
        const QDomElement introduction = child.firstChildElement(kIntroduction);
        if (!introduction.isNull())
        {
            element.hasIntroduction = true;
            const QDomNode first = introduction.firstChild();
            if (first.isText() || first.isCDATASection())
                element.introduction = first.nodeValue();
        }
        const QDomElement settings = child.firstChildElement(kSettings);
        if (!settings.isNull())
        {
            element.hasSettings = true;
            QString markup;
            QTextStream stream(&markup);
            for (QDomNode node = settings.firstChild(); !node.isNull(); node = node.nextSibling())
                node.save(stream, kIndent);
            stream.flush();
            element.settings = CompactText(markup);
        }
        result.elements.append(std::move(element));
    }
    data = std::move(result);
    return StreamReadResult::Read;
}

StreamReadResult ReadWorkflowFileData(const QString& path, const QString& firstTag, WorkflowFileData& data,
                                      const ElementFilter& keep)
{
    StreamReadResult result;
    {
        QByteArray bytes;
        if (!ReadRegularFileBytes(path, bytes))
            return StreamReadResult::Unreadable;
        result = ParseWorkflowFile(bytes, firstTag, data, keep);
    }
    if (result == StreamReadResult::NeedsDocument)
        result = ReadWorkflowFileFromDocument(path, firstTag, data);
    return result;
}

StreamReadResult ParseElementRun(const QByteArray& bytes, const QString& absolutePath,
                                 const AttributeVisitor& visitor)
{
    QXmlStreamReader reader(bytes);
    reader.setNamespaceProcessing(false);
    DepthBound bound(bytes);
    QStringList pieces = PathPieces(absolutePath);
    int depth = 0;
    int matched = 0; // pieces matched by elements still open, below the document element
    bool runStarted = false;
    bool finished = false;
    QList<std::pair<QString, QString>> attributes;
    const auto visit = [&] {
        attributes.clear();
        for (const QXmlStreamAttribute& attribute : reader.attributes())
            attributes.append({attribute.qualifiedName().toString(), attribute.value().toString()});
        visitor(attributes);
    };

    while (!reader.atEnd())
    {
        switch (reader.readNext())
        {
        case QXmlStreamReader::StartElement:
        {
            if (!bound.Allows(++depth))
                return StreamReadResult::Unreadable;
            if (finished)
                break;
            if (AttributesHoldDroppedCharacter(reader.attributes()))
                return StreamReadResult::NeedsDocument;
            const QStringView name = reader.qualifiedName();
            if (depth == 1)
            {
                if (!pieces.isEmpty() && pieces.first() == name)
                    pieces.removeFirst();
                if (pieces.isEmpty())
                {
                    visit();
                    finished = true;
                }
                break;
            }
            // Only children of the deepest matched element (or of the document element) count.
            if (depth - 2 != matched)
                break;
            const int last = static_cast<int>(pieces.size()) - 1;
            if (matched < last)
            {
                if (name == pieces.at(matched))
                    ++matched;
            }
            else if (runStarted || name == pieces.at(last))
            {
                runStarted = true;
                visit();
            }
            break;
        }
        case QXmlStreamReader::EndElement:
            // The first element of a piece closing ends the search: the path takes no other.
            if (!finished && (depth == 1 || (matched > 0 && depth == matched + 1)))
                finished = true;
            --depth;
            break;
        case QXmlStreamReader::DTD:
        case QXmlStreamReader::EntityReference:
            return StreamReadResult::NeedsDocument;
        default:
            break;
        }
    }
    return reader.hasError() ? StreamReadResult::Unreadable : StreamReadResult::Read;
}

QString TranslatedFileText(XlfCatalog* catalog, const QString& fileName, const QString& text)
{
    if (!catalog || !IsTranslatableText(text))
        return text;
    const QString translation = catalog->Lookup(SourceFileKey(fileName), TranslationUnitId(text));
    return translation.isNull() ? text : translation;
}

} // namespace Velmora::WorkflowCore
