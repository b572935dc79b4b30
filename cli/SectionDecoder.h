#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "cli/TraceDecoder.h"

namespace quillwork::cli {

/// Decodes both directions of one connection of the section-filter channel, likewise.
class SectionDecoder : public TraceDecoder {
 public:
  SectionDecoder();

 private:
  using Step = void (SectionDecoder::*)(std::string_view item);

  void take(Direction direction, std::string_view item) override;

  void takeCode(std::string_view item);
  void takeArgument(std::string_view item);
  void takeVectorSize(std::string_view item);
  void takeVector(std::string_view item);
  void expectVector();
  void expectPart(Step step, std::size_t size, std::size_t behind);
  void endRequest();

  void takeSectionSize(std::string_view item);
  void takeSection(std::string_view item);

  Step requestStep_ = &SectionDecoder::takeCode;
  Step replyStep_ = &SectionDecoder::takeSectionSize;
  /// The request under way.
  std::int32_t code_ = 0;
  std::size_t vectorsLeft_ = 0;
  Json fields_ = Json::object();
  TraceTime replyTime_{};
};

}  // namespace quillwork::cli
