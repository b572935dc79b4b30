#pragma once

#include <utility>

namespace adapter {

/// Calls the facade's operation and returns its answer, or `nothing` without the facade.
template <class Facade, class Answer, class... Parameters, class... Arguments>
Answer askOr(Answer nothing, Facade* facade, Answer (Facade::*operation)(Parameters...),
             Arguments&&... arguments) {
  return facade != nullptr ? (facade->*operation)(std::forward<Arguments>(arguments)...) : nothing;
}

/// Calls the facade's operation and returns its answer, or 0, false or an empty value without the
/// facade.
template <class Facade, class Answer, class... Parameters, class... Arguments>
Answer ask(Facade* facade, Answer (Facade::*operation)(Parameters...), Arguments&&... arguments) {
  return facade != nullptr ? (facade->*operation)(std::forward<Arguments>(arguments)...) : Answer();
}

/// Calls the facade's operation, if there is a facade.
template <class Facade, class... Parameters, class... Arguments>
void tell(Facade* facade, void (Facade::*operation)(Parameters...), Arguments&&... arguments) {
  if (facade != nullptr) (facade->*operation)(std::forward<Arguments>(arguments)...);
}

}  // namespace adapter
