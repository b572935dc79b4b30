#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "cli/TraceDecoder.h"
#include "protocol/operations.h"

namespace quillwork::cli {

/// Decodes both directions of one connection of the section-filter channel by the protocol's
/// table.
class SectionDecoder : public TraceDecoder {
 public:
  SectionDecoder();

 private:
  using Step = void (SectionDecoder::*)(std::string_view item);

  void take(Direction direction, std::string_view item) override;

  void takeCode(std::string_view item);
  void takeNumber(std::string_view item);
  void takeVectorSize(std::string_view item);
  void takeVector(std::string_view item);
  void expectVector();
  void expectPart(Step step, std::size_t size);
  void endRequest();

  void takeSectionSize(std::string_view item);
  void takeSection(std::string_view item);

  Step requestStep_ = &SectionDecoder::takeCode;
  Step replyStep_ = &SectionDecoder::takeSectionSize;
  /// The request under way, and how many of its vectors have begun.
  const operations::SectionFilterRequest* row_ = nullptr;
  std::size_t vector_ = 0;
  Json fields_ = Json::object();
  TraceTime replyTime_{};
};

}  // namespace quillwork::cli
