#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/TraceLine.h"

namespace quillwork::cli {

/// Decodes both directions of one connection of the section-filter channel, likewise.
class SectionDecoder {
 public:
  std::vector<TraceLine> feed(Direction direction, std::string_view bytes);

 private:
  bool decodeRequest();
  bool decodeSection();

  std::string fromClient_;
  std::string fromLibrary_;
  std::vector<TraceLine> lines_;
};

}  // namespace quillwork::cli
