#pragma once

#include "protocol/language.h"

#include <list>
#include <string>

#include "facade/visibility.h"

namespace middlewarefacade {

/// The tuner: identifiers of what it can tune to, channel names and numbers.
///
/// The operations are called on the control channel's thread, or on that of the host's code that
/// asks the IpcServerManager, one at a time, with the manager mutex held. The client waits until
/// one returns: answer from what is known, do not tune. Integers are any 32-bit numbers that the
/// client sent; what they mean is the middleware's own affair, and said here is what the reference
/// receiver takes and gives. Lists are the caller's.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class TunerFacade {
 public:
  /// Supplied by the host: a new object that the library owns and deletes with the adapter, or null
  /// if the host has no tuner. Called once for each adapter, inside MiddlewareIpc::getInstance(),
  /// on the thread that calls it.
  QUILLWORK_HOST_DEFINED static TunerFacade* createTunerFacade();

  /// The transport stream id that is tuned to, 0 to 65535; -1 for none. Request: TUNER 0.
  virtual int getCurrentTransportStreamID() = 0;

  /// Identifiers that need no key, in the reference receiver all transport stream ids; the empty
  /// list for none. Request: TUNER 2.
  virtual std::list<int> getIdList() = 0;

  /// Identifiers for a key, in the reference receiver the service ids of a transport stream id; the
  /// empty list for none. Request: TUNER 1.
  virtual std::list<int> getIdListFor(int key) = 0;

  /// A channel's name; the empty text for none. In the reference receiver `first` is a transport
  /// stream id and `second` a service id. No request of the client reaches it; the host's own code
  /// does, through quillwork::IpcServerManager::getChannelName().
  virtual std::string getChannelName(int first, int second) = 0;

  /// A channel's number for the viewer; -1 for none. The arguments are those of getChannelName().
  /// In the reference receiver it is the logical channel number, or ISDB's remote control key. No
  /// request of the client reaches it; the host's own code does, through
  /// quillwork::IpcServerManager::getVirtualChannelNumber().
  virtual int getVirtualChannelNumber(int first, int second) = 0;

  /// Other identifiers for a key, in the reference receiver the transport stream ids of a network
  /// id; the empty list for none. Request: TUNER 3.
  virtual std::list<int> getSecondIdListFor(int key) = 0;

  /// Yet other identifiers for a key, in the reference receiver the transport stream ids of a
  /// bouquet id; the empty list for none. Request: TUNER 4.
  virtual std::list<int> getThirdIdListFor(int key) = 0;

  /// Called once, by the thread that deletes the adapter, after the control channel has ended.
  virtual ~TunerFacade() = default;
};

}  // namespace middlewarefacade
