#pragma once

#include <cxxabi.h>

#include <exception>

/// For a function that catches the unwinding of a cancelled thread, which has no exception object:
/// the reference that catches it is null, and UndefinedBehaviorSanitizer must not look.
#define QUILLWORK_CATCHES_UNWINDING __attribute__((noinline, no_sanitize("null")))

namespace quillwork {

/// Thrown to end the client's connection for an exception that has been printed already.
struct ReportedException {};

/// Prints one line about the exception that ended a call into the host's code. `exception` is null
/// if what was thrown is no std::exception. A std::exception without a text is printed in the same
/// way. Line ends in its text are left out.
void reportException(const char* consequence, const std::exception* exception);

constexpr const char* connectionEnds = "Client's connection ended by an exception";

/// Calls code of the host's. An exception that escapes it, of whatever language, is printed as one
/// line that begins with `consequence`; returns whether none did. The unwinding of a cancelled
/// thread passes through.
template <class Call>
QUILLWORK_CATCHES_UNWINDING bool callHost(Call&& call, const char* consequence = connectionEnds) {
  try {
    call();
    return true;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const ReportedException&) {
  } catch (const std::exception& exception) {
    reportException(consequence, &exception);
  } catch (...) {
    reportException(consequence, nullptr);
  }
  return false;
}

}  // namespace quillwork
