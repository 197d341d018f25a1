#include "zant_host/language.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace zant_host {

namespace {

struct IsoLanguage {
  const char* tag;   // lower case
  const char* code;
};

// Longest tags first is not needed: a tag is tried whole, then with its
// last subtag dropped, until it matches.
const IsoLanguage kIsoLanguages[] = {
    {"en", "enu"},      {"de", "ger"},      {"fr", "fre"},      {"ja", "jpn"},
    {"zh-tw", "cht"},   {"zh-hk", "cht"},   {"zh-mo", "cht"},   {"zh-hant", "cht"},
    {"zh", "chs"},      {"zh-cn", "chs"},   {"zh-sg", "chs"},   {"zh-hans", "chs"},
    {"es", "spn"},      {"it", "ita"},      {"ko", "krn"},      {"nl", "nld"},
    {"pt", "ptb"},      {"pt-br", "ptb"},   {"pt-pt", "ptg"},   {"ru", "rus"},
    {"sv", "sve"},      {"da", "dan"},      {"nb", "nor"},      {"nn", "nor"},
    {"no", "nor"},      {"pl", "plk"},      {"cs", "csy"},      {"hu", "hun"},
    {"tr", "trk"},      {"th", "tha"},
};

const char* const kApplianceCodes[] = {"enu", "ger", "fre", "jpn", "cht", "chs", "spn",
                                       "ita", "krn", "nld", "ptb", "ptg", "rus", "sve",
                                       "dan", "nor", "plk", "csy", "hun", "trk", "tha"};

std::string Lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c == '_') c = '-';
  }
  return text;
}

std::string Trim(const std::string& text) {
  size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string::npos) return std::string();
  size_t end = text.find_last_not_of(" \t");
  return text.substr(begin, end - begin + 1);
}

// q value of "q=0.8" in thousandths; -1 when malformed.
int QualityOf(const std::string& param) {
  std::string p = Trim(param);
  if (p.size() < 3 || (p[0] != 'q' && p[0] != 'Q') || p[1] != '=') return -1;
  const std::string value = p.substr(2);
  if (value.empty() || value.size() > 5) return -1;
  if (value[0] != '0' && value[0] != '1') return -1;
  int q = (value[0] - '0') * 1000;
  if (value.size() > 1) {
    if (value[1] != '.') return -1;
    int scale = 100;
    for (size_t i = 2; i < value.size(); ++i, scale /= 10) {
      if (value[i] < '0' || value[i] > '9') return -1;
      q += (value[i] - '0') * scale;
    }
  }
  return q <= 1000 ? q : -1;
}

}  // namespace

std::string LanguageFromCode(const std::string& code) {
  std::string tag = Lower(Trim(code));
  if (tag.empty() || tag.size() > 64) return std::string();
  for (const char* known : kApplianceCodes) {
    if (tag == known) return known;
  }
  while (!tag.empty()) {
    for (const IsoLanguage& entry : kIsoLanguages) {
      if (tag == entry.tag) return entry.code;
    }
    size_t dash = tag.rfind('-');
    if (dash == std::string::npos) break;
    tag.resize(dash);
  }
  return std::string();
}

std::string LanguageFromAcceptHeader(const std::string& header) {
  struct Choice {
    int quality;
    size_t order;
    std::string code;
  };
  std::vector<Choice> choices;
  size_t start = 0;
  size_t order = 0;
  while (start <= header.size() && order < 64) {
    size_t end = header.find(',', start);
    if (end == std::string::npos) end = header.size();
    const std::string item = header.substr(start, end - start);
    start = end + 1;
    size_t semi = item.find(';');
    const std::string tag = Trim(item.substr(0, semi));
    int quality = 1000;
    if (semi != std::string::npos) quality = QualityOf(item.substr(semi + 1));
    if (quality <= 0) continue;
    const std::string code = LanguageFromCode(tag);
    if (!code.empty()) choices.push_back(Choice{quality, order++, code});
  }
  if (choices.empty()) return std::string();
  auto best = std::min_element(choices.begin(), choices.end(), [](const Choice& a, const Choice& b) {
    return a.quality != b.quality ? a.quality > b.quality : a.order < b.order;
  });
  return best->code;
}

std::string ChooseUILanguage(const Json::Value& langParam, const std::string& sessionLang,
                             const std::string& acceptLanguage) {
  if (langParam.isString()) {
    const std::string code = LanguageFromCode(langParam.asString());
    if (!code.empty()) return code;
  }
  const std::string preferred = LanguageFromCode(sessionLang);
  if (!preferred.empty()) return preferred;
  const std::string accepted = LanguageFromAcceptHeader(acceptLanguage);
  return accepted.empty() ? "enu" : accepted;
}

}  // namespace zant_host
