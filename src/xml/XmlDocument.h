#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

// The XML library's, which is included where they are looked into only.
struct _xmlDoc;
struct _xmlNode;

namespace sarnevo::xml {

/// An element of an XmlDocument. Void once the element, one above it or the document is gone.
using XmlElement = _xmlNode;

/// An XML 1.0 document in memory. All texts are UTF-8.
///
/// Meant for small files that anybody may have touched: what a preset file never holds (a document type, a
/// zero byte, undeclared prefixes, deep nesting) isn't accepted at all, nothing is ever fetched, and no entity
/// beyond XML's own is expanded. White space between elements is kept. Writes to no stream, and leaves
/// all settings of the XML library that the host could share as they are. Prepares the library itself.
///
/// One thread uses a document at a time. Running out of memory is a failure like any other, except for the
/// operations that look something up: they throw std::bad_alloc, since "not found" would be wrong.
class XmlDocument {
 public:
  /// What each document that is written begins with.
  static constexpr char kDeclaration[] = "<?xml version='1.0' encoding='utf-8'?>";
  /// Longest text of a whole document that is read or written, bytes.
  static constexpr std::size_t kMaxBytes = std::size_t{64} << 20;
  /// Longest text of one attribute that is written, bytes. Kept far below what a strict parser takes, since
  /// a file that could be written but not read again would be worth nothing.
  static constexpr std::size_t kMaxValueBytes = std::size_t{1} << 20;
  /// Greatest Depth of an element that is made; a strict parser takes about 256.
  static constexpr std::uint32_t kMaxDepth = 200;

  enum class ParseResult {
    Parsed,
    Malformed,
    NoMemory,  ///< says nothing about the text
  };

  bool HasContent() const noexcept { return content_ != nullptr; }
  void Clear() noexcept { content_.reset(); }

  /// Replaces the content by what @p text holds, in any encoding that it declares. The content is gone when
  /// that fails.
  ParseResult Parse(std::string_view text) noexcept;

  /// The whole document in UTF-8, beginning with the declaration. Nothing when it has no root element or
  /// would be longer than kMaxBytes.
  std::optional<std::string> Print() const noexcept;

  /// The first element, in document order, that @p path leads to; null when there is none. A path is the
  /// names of elements from the root's down, joined by "/". Each may be followed by conditions of the form
  /// [@name="value"]. Elements in a namespace have no name of this kind.
  XmlElement* Select(std::string_view path) const;

  /// Number of nodes from @p element up to and including the document: 2 for the root element.
  std::uint32_t Depth(const XmlElement* element) const noexcept;

  /// Whether AppendElement takes the name: one that XML allows, without a colon.
  static bool IsElementName(const std::string& name) noexcept;

  /// Adds an element after everything that @p parent holds; null when it can't be made.
  XmlElement* AppendElement(XmlElement* parent, const std::string& name) noexcept;
  /// White space, after everything that @p parent holds. What there is no memory for is missing.
  void AppendText(XmlElement* parent, const std::string& text) noexcept;
  /// Removes an element with all that it holds.
  bool Remove(XmlElement* element) noexcept;

  /// Nothing when the element has no such attribute.
  std::optional<std::string> GetAttribute(const XmlElement* element, std::string_view name) const;
  /// Changes the attribute or makes it. False for a name or text that XML can't carry, or a text that is too
  /// long.
  bool SetAttribute(XmlElement* element, const std::string& name, const std::string& value) noexcept;

 private:
  struct Deleter {
    void operator()(_xmlDoc* content) const noexcept;
  };
  std::unique_ptr<_xmlDoc, Deleter> content_;
};

}  // namespace sarnevo::xml
