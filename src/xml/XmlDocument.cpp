#include "xml/XmlDocument.h"

#include <algorithm>
#include <utility>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include "xml/Guarded.h"
#include "xml/Utf8.h"
#include "xml/XmlPath.h"

namespace sarnevo::xml {

namespace {

// Deletes an object of the library with its own function.
template <auto Delete>
struct With {
  template <typename T>
  void operator()(T* object) const noexcept {
    Delete(object);
  }
};

using ParserContext = std::unique_ptr<xmlParserCtxt, With<xmlFreeParserCtxt>>;
using Buffer = std::unique_ptr<xmlBuffer, With<xmlBufferFree>>;

void DropError(void*, xmlErrorPtr) {}

// The library remembers the last error of each thread, and gives each error to the thread's handler or, without
// one, to the standard error stream. The host may use the library too: the error that it may still want to ask
// for is not ours to overwrite, and what we want memory for is no news for its handler or its terminal.
class LastErrorKeeper {
 public:
  LastErrorKeeper() noexcept {
    if (xmlErrorPtr last = xmlGetLastError()) {
      xmlCopyError(last, &saved_);
    }
    xmlSetStructuredErrorFunc(nullptr, DropError);
  }
  ~LastErrorKeeper() {
    xmlSetStructuredErrorFunc(context_, handler_);
    xmlResetLastError();
    if (saved_.code != XML_ERR_OK) {
      xmlCopyError(&saved_, &xmlLastError);
      xmlResetError(&saved_);
    }
  }
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  const xmlStructuredErrorFunc handler_ = xmlStructuredError;
  void* const context_ = xmlStructuredErrorContext;
  xmlError saved_ = {};
};

const xmlChar* ToXml(const char* text) noexcept { return reinterpret_cast<const xmlChar*>(text); }

std::string_view FromXml(const xmlChar* text) noexcept {
  return text == nullptr ? std::string_view() : reinterpret_cast<const char*>(text);
}

// Nothing when there is no such attribute. One of another namespace has a name of another kind. Put together here: the
// library's functions give an empty or a shorter text for a lack of memory. Without a document type there are no
// entities, so that an attribute holds nothing but text.
std::optional<std::string> AttributeOf(const xmlNode* node, std::string_view name) {
  for (const xmlAttr* attribute = node->properties; attribute != nullptr; attribute = attribute->next) {
    if (attribute->ns == nullptr && FromXml(attribute->name) == name) {
      std::string value;
      for (const xmlNode* part = attribute->children; part != nullptr; part = part->next) {
        value += FromXml(part->content);
      }
      return value;
    }
  }
  return std::nullopt;
}

bool Matches(xmlNode* node, const XmlStep& step) {
  return node->type == XML_ELEMENT_NODE && node->ns == nullptr && FromXml(node->name) == step.name &&
         std::all_of(step.conditions.begin(), step.conditions.end(),
                     [node](const auto& is) { return AttributeOf(node, is.attribute) == is.value; });
}

// Looks into each element that matches, since only the second of two equal names may lead on.
xmlNode* Find(xmlNode* first, std::string_view path) {
  const auto step = TakeXmlStep(path);
  for (xmlNode* node = step ? first : nullptr; node != nullptr; node = node->next) {
    if (Matches(node, *step)) {
      xmlNode* const found = path.empty() ? node : Find(node->children, path);
      if (found != nullptr) {
        return found;
      }
    }
  }
  return nullptr;
}

// What is written goes out in UTF-8 whatever it was read from; without this mark letters in attributes would
// go out as numbers.
bool MarkAsUtf8(xmlDoc* document) noexcept {
  xmlChar* const encoding = xmlStrdup(ToXml("utf-8"));
  if (encoding == nullptr) {
    return false;
  }
  xmlFree(const_cast<xmlChar*>(document->encoding));
  document->encoding = encoding;
  return true;
}

// Once for all threads: the library's own look at whether it has been done isn't one that threads may share. Its data
// is shared with the host, so that there is nothing to be given back.
void PrepareLibrary() noexcept {
  static const bool ready = [] {
    const LastErrorKeeper keeper;
    xmlInitParser();
    return true;
  }();
  static_cast<void>(ready);
}

// A document type is refused at its first word, before anything of it is read.
void RefuseDocumentType(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  xmlStopParser(static_cast<xmlParserCtxtPtr>(context));
}

}  // namespace

void XmlDocument::Deleter::operator()(_xmlDoc* content) const noexcept { xmlFreeDoc(content); }

XmlDocument::ParseResult XmlDocument::Parse(std::string_view text) noexcept {
  Clear();
  if (text.size() > kMaxBytes || text.find('\0') != std::string_view::npos) {
    return ParseResult::Malformed;
  }
  PrepareLibrary();
  const LastErrorKeeper keeper;
  const ParserContext parser(xmlNewParserCtxt());
  if (!parser) {
    return ParseResult::NoMemory;
  }
  // The handlers of this parser alone; without them errors would go to the host's handlers or its standard
  // error stream. Blanks are kept whatever default the host has chosen.
  parser->sax->serror = DropError;
  parser->sax->internalSubset = RefuseDocumentType;
  parser->sax->ignorableWhitespace = parser->sax->characters;
  parser->keepBlanks = 1;
  std::unique_ptr<xmlDoc, Deleter> document(
      xmlCtxtReadMemory(parser.get(), text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                        XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
  if (parser->errNo == XML_ERR_NO_MEMORY) {
    return ParseResult::NoMemory;
  }
  if (!document || parser->nsWellFormed == 0 || document->intSubset != nullptr ||
      xmlDocGetRootElement(document.get()) == nullptr) {
    return ParseResult::Malformed;
  }
  if (!MarkAsUtf8(document.get())) {
    return ParseResult::NoMemory;
  }
  content_ = std::move(document);
  return ParseResult::Parsed;
}

std::optional<std::string> XmlDocument::Print() const noexcept {
  xmlDoc* const document = content_.get();
  if (document == nullptr || xmlDocGetRootElement(document) == nullptr) {
    return std::nullopt;
  }
  return Guarded(std::optional<std::string>(), [&]() -> std::optional<std::string> {
    const LastErrorKeeper keeper;
    const Buffer buffer(xmlBufferCreate());
    xmlSaveCtxt* const saver =
        buffer ? xmlSaveToBuffer(buffer.get(), "UTF-8", XML_SAVE_AS_XML | XML_SAVE_NO_DECL) : nullptr;
    if (saver == nullptr) {
      return std::nullopt;
    }
    // Node by node: for a whole document the library puts line feeds of its own between them.
    bool done = true;
    for (xmlNode* node = document->children; node != nullptr; node = node->next) {
      done = xmlSaveTree(saver, node) >= 0 && done;
    }
    done = xmlSaveClose(saver) >= 0 && done;
    const auto body = FromXml(xmlBufferContent(buffer.get()));
    if (!done || body.empty() || body.size() > kMaxBytes - sizeof(kDeclaration)) {
      return std::nullopt;
    }
    return std::string(kDeclaration).append(body);
  });
}

XmlElement* XmlDocument::Select(std::string_view path) const {
  if (content_ == nullptr) {
    return nullptr;
  }
  path.remove_prefix(path.starts_with('/') ? 1 : 0);  // the document
  return Find(content_->children, path);
}

std::uint32_t XmlDocument::Depth(const XmlElement* element) const noexcept {
  std::uint32_t depth = 0;
  for (const xmlNode* node = element; node != nullptr; node = node->parent) {
    ++depth;
  }
  return depth;
}

bool XmlDocument::IsElementName(const std::string& name) noexcept {
  return name.find('\0') == name.npos && IsXmlText(name) && xmlValidateNCName(ToXml(name.c_str()), 0) == 0;
}

XmlElement* XmlDocument::AppendElement(XmlElement* parent, const std::string& name) noexcept {
  if (!IsElementName(name) || Depth(parent) >= kMaxDepth) {
    return nullptr;
  }
  const LastErrorKeeper keeper;
  // Without a namespace: a prefix-less name that took one over from its parent could never be selected.
  xmlNode* const node = xmlNewDocNode(parent->doc, nullptr, ToXml(name.c_str()), nullptr);
  if (node == nullptr || xmlAddChild(parent, node) == nullptr) {
    xmlFreeNode(node);
    return nullptr;
  }
  return node;
}

void XmlDocument::AppendText(XmlElement* parent, const std::string& text) noexcept {
  const LastErrorKeeper keeper;
  xmlNodeAddContentLen(parent, ToXml(text.data()), static_cast<int>(text.size()));
}

bool XmlDocument::Remove(XmlElement* element) noexcept {
  xmlUnlinkNode(element);
  xmlFreeNode(element);
  return true;
}

std::optional<std::string> XmlDocument::GetAttribute(const XmlElement* element, std::string_view name) const {
  return AttributeOf(element, name);
}

bool XmlDocument::SetAttribute(XmlElement* element, const std::string& name,
                               const std::string& value) noexcept {
  if (value.size() > kMaxValueBytes || !IsElementName(name) || !IsXmlText(value)) {
    return false;
  }
  // Without memory for the text the library makes an empty one and calls it done.
  return Guarded(false, [&] {
    const LastErrorKeeper keeper;
    return xmlSetNsProp(element, nullptr, ToXml(name.c_str()), ToXml(value.c_str())) != nullptr &&
           AttributeOf(element, name) == value;
  });
}

}  // namespace sarnevo::xml
