// The UI language of a request: a "lang" parameter, then the session's
// preference, then the browser's Accept-Language, then "enu".
#pragma once

#include <string>

#include <json/json.h>

namespace zant_host {

// The appliance's three-letter code for a three-letter code it knows
// ("ger") or an ISO language tag ("de", "de-AT", "zh-TW", "zh-Hant-HK"),
// any case; empty when unknown.
std::string LanguageFromCode(const std::string& code);

// The best language of an Accept-Language value that the appliance knows
// (highest "q" first, then order of appearance; q=0 excluded); empty when none.
std::string LanguageFromAcceptHeader(const std::string& header);

// The request's UI language. `langParam` is the "lang" parameter (null when
// absent; only a string counts), `sessionLang` the session's preference.
std::string ChooseUILanguage(const Json::Value& langParam, const std::string& sessionLang,
                             const std::string& acceptLanguage);

}  // namespace zant_host
