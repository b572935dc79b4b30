#pragma once

#include <string>
#include <vector>

#include "cli/Output.h"
#include "client/Records.h"

namespace quillwork::cli {

/// A descriptor and what it says.
struct DescribedDescriptor {
  client::Descriptor descriptor;
  std::string name;  ///< empty where the tag is not known
  /// An object with a member for each field, a list of them where the descriptor has several
  /// entries, null where it could not be read.
  Json fields;
};

/// Reads the descriptors of one loop; a private data specifier in it holds for those behind.
/// `table`: the character table of texts that do not name their own, as the receiver names it.
std::vector<DescribedDescriptor> describe(const std::vector<client::Descriptor>& loop,
                                          const std::string& table);

/// The elements of a piece of XML, in which a '<' may stand in an attribute's value: an object of
/// the attributes for one, a list for several. What stands inside an element is the list "items" of
/// its object. An element without attributes is none.
Json elementsOf(const std::string& xml, std::string& name);

}  // namespace quillwork::cli
