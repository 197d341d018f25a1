// What every mobile landing page is built from, and the pages themselves.
#pragma once

#include <string>
#include <vector>

#include <json/json.h>

#include "zant/webapi.h"

class MobileRoute {
 public:
  MobileRoute(ZANT::APIRequest* request, const std::string& permanentLink,
              const std::string& sharingLink, const std::string& account,
              const std::string& token);

  static bool IsMobile(ZANT::APIRequest* request);

  std::string GetText(const std::string& section, const std::string& key) const;
  Json::Value GetHostInfo() const;
  Json::Value GetBaseState() const;
  std::string GetJSTags(const std::vector<std::string>& scripts) const;
  Json::Value GetTplValues(const std::string& bodyClass, const std::string& title,
                           const std::string& contentTitle, const std::string& contentDesc,
                           std::vector<std::string> scripts, const Json::Value& state) const;

  Json::Value GetAnonymousPage() const;
  Json::Value GetPermErrorPage(const Json::Value& file) const;
  Json::Value GetInfoPage(const Json::Value& file, bool previewOnly) const;
  Json::Value GetExpiredPage() const;
  Json::Value GetInvalidLinkPage() const;

  const std::string& GetAccount() const { return account_; }

 private:
  ZANT::APIRequest* request_;
  const std::string& permanentLink_;
  const std::string& sharingLink_;
  const std::string& account_;
  const std::string& token_;
  Json::Value texts_;
};

// Writes the mobile page for a page code of method "get".
void WriteMobilePage(ZANT::APIResponse* response, const MobileRoute& route, int pageCode,
                     const Json::Value& file);
