// A record of the control channel, to look at in a debugger.

#include <protocol/message.h>

namespace {

int show(const quillwork::message& record) { return record.type; }

}  // namespace

int main() {
  quillwork::message record{};
  record.group = quillwork::SI;
  record.type = 7;
  record[3] = 1001;
  return show(record) == 7 ? 0 : 1;
}
