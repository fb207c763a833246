// Calls into the code of a source of classes.
#pragma once

#include <ormutil/Error.h>

#include <exception>
#include <optional>

namespace orm {

// Runs `call`, which runs code of a component library or a factory, and throws on what it throws as an Error
// that belongs to this library. The object that the component threw, its type description and its destructor
// lie in a module that may be unmapped before the last handler is done with it.
template <class Call>
void CallSource(Call&& call) {
  std::optional<Error> failure;
  try {
    call();
  } catch (const Error& error) {
    failure = error;
  } catch (const std::exception& error) {
    failure = Error(ERROR_GENERAL, error.what());
  } catch (...) {
    failure = Error(ERROR_GENERAL, "The component threw an object that is not an error.");
  }
  if (failure) throw *failure;
}

}  // namespace orm
