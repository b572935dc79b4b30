#pragma once

#include "protocol/language.h"

#include <list>
#include <string>

#include "facade/records.h"
#include "facade/visibility.h"

namespace middlewarefacade {

/// Service information (ISO/IEC 13818-1 PSI and ETSI EN 300 468 SI, or a sibling standard).
///
/// The operations are called on the control channel's thread, or on that of the host's code that
/// asks the IpcServerManager, one at a time, with the manager mutex held. Each request asks anew,
/// and the client waits for the answer: answer from what has been received, do not wait for the
/// broadcast. Records and lists are returned by value, in the order in which the client shall get
/// them. Texts are bytes without a character set (getSICodingFormat() names it), and the client
/// gets the first 254 of each unless a record says otherwise.
///
/// An integer argument is any 32-bit number that the client sent. What integers mean is the
/// middleware's own affair, between it and its presentation engine; said here is what the reference
/// receiver takes and gives. It gives -1 for what is unknown.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class SIFacade {
 public:
  /// Supplied by the host: a new object that the library owns and deletes with the adapter, or null
  /// if the host has no service information. Called once for each adapter, inside
  /// MiddlewareIpc::getInstance(), on the thread that calls it.
  QUILLWORK_HOST_DEFINED static SIFacade* createSIFacade();

  /// The network that is being received; Network_::network_value -1 if it is not known. Request:
  /// SI 14.
  virtual Network_ getNetwork() = 0;

  /// The network's descriptors, in the reference receiver the first loop of the actual NIT; the
  /// empty list if there are none. Request: SI 15.
  virtual std::list<Descriptors_> getNetworkDescriptors() = 0;

  /// The transport stream that is being received; TransportStream_::value_2 -1 if it is not known.
  /// Request: SI 12.
  virtual TransportStream_ getTransportStream() = 0;

  /// A transport stream's descriptors, in the reference receiver its loop in the NIT for a
  /// transport stream id, or -1 for the received one; the empty list if there are none. Request:
  /// SI 13.
  virtual std::list<Descriptors_> getTransportStreamDescriptors(int transportStream) = 0;

  /// The services; the empty list if none is known. The reference receiver gives the received
  /// stream's in the order of its SDT, then those of other streams. Request: SI 6.
  virtual std::list<Service_> getServices() = 0;

  /// The identifier of the selected service, as in Service_::value_1; -1 for none. Request: SI 7.
  virtual int getCurrentService() = 0;

  /// A service's descriptors by its identifier. No request of the client reaches it; the host's own
  /// code does, through quillwork::IpcServerManager::getServiceDescriptors().
  virtual std::list<Descriptors_> getServiceDescriptors(int serviceId) = 0;

  /// All broadcast events that are known; the empty list if there are none. The reference receiver
  /// gives those that are present and following first. Request: SI 1.
  virtual std::list<ProgramEvent_> getProgramEvents() = 0;

  /// One event, in the reference receiver the present one of the current service;
  /// ProgramEvent_::value_2 -1 for none. ProgramEvent_::value_5 does not reach the client here: it
  /// gets 0. Request: SI 2.
  virtual ProgramEvent_ getProgramEvent() = 0;

  /// An event's descriptors; the empty list if there are none. In the reference receiver `first` is
  /// a service id, or -1 for the current service, and `second` an event id. Request: SI 3, 9.
  virtual std::list<Descriptors_> getProgramEventDescriptors(int first, int second) = 0;

  /// A service's elementary streams; the empty list if none is known. In the reference receiver
  /// `serviceId` is a service id, or -1 for the current service. Request: SI 10.
  virtual std::list<ServiceComponent_> getServiceComponents(int serviceId) = 0;

  /// An elementary stream's descriptors; the empty list if there are none. In the reference
  /// receiver `component` is its PID. Request: SI 11.
  virtual std::list<Descriptors_> getServiceComponentDescriptors(int component) = 0;

  /// Program maps; the empty list if none is known. In the reference receiver `program` is a
  /// program number, or -1 for all. Request: SI 16.
  virtual std::list<ProgramMap_> getPMTs(int program) = 0;

  /// The character set of all texts, in the reference receiver "UTF-8"; the empty text if it is not
  /// known. Request: SI 0.
  virtual std::string getSICodingFormat() = 0;

  /// The conditional-access systems that are named, 0 to 65535, in the reference receiver from the
  /// CAT and all PMTs; the empty list if there are none. Request: SI 4.
  virtual std::list<int> getCASystemIds() = 0;

  /// Whether the current service is scrambled or restricted; false if it is not known. Request:
  /// SI 5.
  virtual bool isProtectedService() = 0;

  /// The current service in words, in the reference receiver its name and its provider; the empty
  /// text for none. Request: SI 8.
  virtual std::string getServiceDescription() = 0;

  /// Called once, by the thread that deletes the adapter, after the control channel has ended.
  virtual ~SIFacade() = default;
};

}  // namespace middlewarefacade
