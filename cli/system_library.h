// A library of the system that only some commands need, opened when first used
// instead of when the program starts: libsndfile (WAV files) and ALSA (play) bring a
// dozen further libraries with them, and mapping them all would otherwise be part of
// every run, `decode --format raw` and `info` included.
#pragma once

#include <string>

namespace kxhost {

class SystemLibrary {
 public:
  // Opens the library `soname` (a shared object name such as "libsndfile.so.1"); it
  // stays loaded until the program ends. Throws CliError (`purpose` says what it was
  // needed for) when the system has no such library.
  SystemLibrary(const char* soname, const std::string& purpose);

  // The function `name` of the library, as a pointer of type F; throws CliError when
  // the library has no such function.
  template <class F>
  F Function(const char* name) const {
    return reinterpret_cast<F>(Address(name));
  }

 private:
  void* Address(const char* name) const;

  std::string soname_;
  std::string purpose_;
  void* handle_ = nullptr;
};

// The record of function pointers `Calls` that `load` makes from the library
// `soname`, made on the first call and kept (a failed load throws, and the next call
// tries again).
template <class Calls, class Load>
const Calls& LibraryCalls(const char* soname, const char* purpose, Load load) {
  static const Calls calls = load(SystemLibrary(soname, purpose));
  return calls;
}

}  // namespace kxhost

// The function `fn` of the SystemLibrary `library`, typed as the library's header
// declares it.
#define KX_LIBRARY_FUNCTION(library, fn) (library).Function<decltype(&fn)>(#fn)
