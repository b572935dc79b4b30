// The service-information queries: each asks its facade once and converts the answer.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <list>
#include <string>
#include <string_view>
#include <utility>

#include "adapter/MiddlewareIpc.h"
#include "adapter/Published.h"
#include "adapter/ask.h"
#include "facade/SIFacade.h"
#include "protocol/ReplyLists.h"

using adapter::ask;
using adapter::askOr;
using adapter::load;
using quillwork::OwnedRecord;
using quillwork::OwnedRecords;

namespace {

/// Copies as much of the text as leaves a zero byte at the end of a field of zeros.
template <std::size_t Size>
void fillField(char (&field)[Size], std::string_view text) {
  std::memcpy(field, text.data(), std::min(text.size(), Size - 1));
}

// Each fills a zero record in its place.

void convert(quillwork::service& to, const middlewarefacade::Service_& from) {
  to.value_1 = from.value_1;
  to.value_2 = from.value_2;
  to.value_3 = from.value_3;
  to.value_4 = from.value_4;
  to.value_5 = from.value_5;
  fillField(to.name, from.name);
}

void convert(quillwork::service_component& to, const middlewarefacade::ServiceComponent_& from) {
  to = {from.value_1, from.value_2, from.value_3, from.value_4, from.value_5, from.value_6};
}

void convert(quillwork::pmt& to, const middlewarefacade::ProgramMap_& from) {
  to = {from.value_1, from.value_2, from.value_3, from.value_4};
}

void convertList(std::list<char>*& to, std::int32_t& count, const std::list<unsigned char>& from) {
  to = new std::list<char>(from.begin(), from.end());
  count = static_cast<std::int32_t>(to->size());
}

void convertList(std::list<std::string>*& to, std::int32_t& count, std::list<std::string>& from) {
  to = new std::list<std::string>(std::move(from));
  count = static_cast<std::int32_t>(to->size());
}

/// Takes the texts of the lists away. What has been allocated when an exception strikes is in the
/// record.
void convert(quillwork::program_event& to, middlewarefacade::ProgramEvent_& from) {
  to.value_1 = from.value_1;
  to.value_2 = from.value_2;
  to.value_3 = from.value_3;
  to.value_4 = from.value_4;
  to.value_5 = from.value_5;
  to.value_6 = from.value_6;
  to.value_7 = from.value_7;
  to.value_8 = from.value_8;
  fillField(to.text_1, from.text_1);
  fillField(to.text_2, from.text_2);
  fillField(to.text_3, from.text_3);
  convertList(to.byte_list_1, to.byte_list_1_count, from.byte_list_1);
  convertList(to.byte_list_2, to.byte_list_2_count, from.byte_list_2);
  convertList(to.byte_list_3, to.byte_list_3_count, from.byte_list_3);
  convertList(to.text_list_1, to.text_list_1_count, from.text_list_1);
  convertList(to.text_list_2, to.text_list_2_count, from.text_list_2);
  convertList(to.text_list_3, to.text_list_3_count, from.text_list_3);
}

void convert(quillwork::descriptor& to, const middlewarefacade::Descriptors_& from) {
  to.tag = from.tag;
  convertList(to.data, to.length, from.data);
}

/// Converts the answer of one call of the SI facade, or is empty without that facade. An element is
/// given back as soon as it is converted: its memory is still at hand, and a long list never exists
/// twice. What has been converted is freed if the conversion throws.
template <class To, auto query, class... Arguments>
std::list<To> convertAll(middlewarefacade::SIFacade* facade, Arguments... arguments) {
  OwnedRecords<To> converted;
  if (facade == nullptr) return converted.release();
  for (auto elements = (facade->*query)(arguments...); !elements.empty(); elements.pop_front()) {
    convert(converted->emplace_back(), elements.front());
  }
  return converted.release();
}

}  // namespace

using middlewarefacade::SIFacade;

std::list<quillwork::service> MiddlewareIpc::getServices() {
  return convertAll<quillwork::service, &SIFacade::getServices>(load(siFacade));
}

std::list<quillwork::program_event> MiddlewareIpc::getProgramEvents() {
  return convertAll<quillwork::program_event, &SIFacade::getProgramEvents>(load(siFacade));
}

quillwork::program_event MiddlewareIpc::getProgramEvent() {
  OwnedRecord<quillwork::program_event> event;
  if (SIFacade* const facade = load(siFacade)) {
    middlewarefacade::ProgramEvent_ from = facade->getProgramEvent();
    convert(*event, from);
    // Unlike the elements of the list, the single event does not carry its fifth integer.
    event->value_5 = 0;
  }
  return event.release();
}

std::list<quillwork::service_component> MiddlewareIpc::getServiceComponents(int serviceId) {
  return convertAll<quillwork::service_component, &SIFacade::getServiceComponents>(load(siFacade),
                                                                                   serviceId);
}

std::list<quillwork::pmt> MiddlewareIpc::getPMTs(int program) {
  return convertAll<quillwork::pmt, &SIFacade::getPMTs>(load(siFacade), program);
}

std::list<int> MiddlewareIpc::getCASystemIds() {
  return ask(load(siFacade), &SIFacade::getCASystemIds);
}

std::list<quillwork::descriptor> MiddlewareIpc::getNetworkDescriptors() {
  return convertAll<quillwork::descriptor, &SIFacade::getNetworkDescriptors>(load(siFacade));
}

std::list<quillwork::descriptor> MiddlewareIpc::getTransportStreamDescriptors(int transportStream) {
  return convertAll<quillwork::descriptor, &SIFacade::getTransportStreamDescriptors>(
      load(siFacade), transportStream);
}

std::list<quillwork::descriptor> MiddlewareIpc::getServiceDescriptors(int serviceId) {
  return convertAll<quillwork::descriptor, &SIFacade::getServiceDescriptors>(load(siFacade),
                                                                             serviceId);
}

std::list<quillwork::descriptor> MiddlewareIpc::getProgramEventDescriptors(int first, int second) {
  return convertAll<quillwork::descriptor, &SIFacade::getProgramEventDescriptors>(load(siFacade),
                                                                                  first, second);
}

std::list<quillwork::descriptor> MiddlewareIpc::getServiceComponentDescriptors(int component) {
  return convertAll<quillwork::descriptor, &SIFacade::getServiceComponentDescriptors>(
      load(siFacade), component);
}

quillwork::network MiddlewareIpc::getNetwork() {
  quillwork::network network{};
  if (SIFacade* const facade = load(siFacade)) {
    const middlewarefacade::Network_ from = facade->getNetwork();
    network.network_value = from.network_value;
    fillField(network.name, from.name);
  }
  return network;
}

quillwork::transport_stream MiddlewareIpc::getTransportStream() {
  quillwork::transport_stream stream{};
  if (SIFacade* const facade = load(siFacade)) {
    const middlewarefacade::TransportStream_ from = facade->getTransportStream();
    stream.value_1 = from.value_1;
    stream.value_2 = from.value_2;
    stream.value_3 = from.value_3;
    stream.real_value = from.real_value;
    stream.mode = from.mode >= 0 && from.mode <= 3 ? from.mode : 0;
  }
  return stream;
}

int MiddlewareIpc::getCurrentService() {
  return askOr(-1, load(siFacade), &SIFacade::getCurrentService);
}

bool MiddlewareIpc::isProtectedService() {
  return ask(load(siFacade), &SIFacade::isProtectedService);
}

std::string MiddlewareIpc::getServiceDescription() {
  return ask(load(siFacade), &SIFacade::getServiceDescription);
}

std::string MiddlewareIpc::getSICodingFormat() {
  return ask(load(siFacade), &SIFacade::getSICodingFormat);
}
