// Small pieces the handlers share: reading text parameters, opening the
// store with a logged failure and loading the libraries kept beside the
// link service's own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "store.h"
#include "zant/webapi.h"

namespace plyth_services {

// A text parameter. The framework reads form fields as JSON where they
// parse as JSON, so a password 1234 arrives as a number: integers and
// booleans are taken as the text they were written as. False when the
// parameter is of another type, or absent while `required`.
bool TextParam(const ZANT::APIRequest& request, const char* name, bool required, std::string* value);

// A whole-number parameter (a number, or a text of digits): `fallback`
// when absent; false when it is of another type or outside [min, max].
bool IntParam(const ZANT::APIRequest& request, const char* name, int64_t fallback, int64_t min, int64_t max,
              int64_t* value);

// The process's shared store (see Store::Shared), or null after logging why
// it could not be opened. Valid until the end of the request.
Store* OpenStoreOrLog();

// The accessor `name` of the library at `relative` to the directory of the
// library this code is in, or null after one syslog line
// "plyth-services: no <what>: <reason>". The library stays loaded.
void* LibraryAccessor(const char* relative, const char* name, const char* what);

// The function table of a part kept in a library of its own: from `linked`
// when the program links that part (the tests, the benchmarks; a weak
// symbol, null in the link service's library), else from the accessor
// `name` of the library at `relative`, or null.
template <typename Table>
const Table* LoadedTable(const Table* (*linked)(), const char* relative, const char* name, const char* what) {
  if (linked != nullptr) return linked();
  void* accessor = LibraryAccessor(relative, name, what);
  return accessor == nullptr ? nullptr : reinterpret_cast<const Table* (*)()>(accessor)();
}

// The desktop UI texts directory (a language directory below it).
constexpr char kUITexts[] = "/usr/zant/zantman/texts/";

// A three-letter language code: "lang", else the request's UI language,
// else "enu". Anything else could walk out of a texts directory.
std::string LanguageOf(const ZANT::APIRequest& request);

// The texts of `lang` under `directory`, or the default language's when
// that language has none; always an object.
Json::Value TextsOf(const std::string& directory, const std::string& lang);

// Writes a script answer ("getjs" methods) to standard output.
void WriteScript(const std::string& body);

}  // namespace plyth_services
