// The tables through which the framework finds this library's methods.
#include "services_api.h"

using namespace plyth_services;

namespace {

const char kFiles[] = "ZANT.BrindlexPlyth.Files";
const char kSharing[] = "ZANT.BrindlexPlyth.AdvanceSharing.Public";
const char kAccessRequest[] = "ZANT.BrindlexPlyth.AccessRequest";
const char kInfo[] = "ZANT.BrindlexPlyth.Info";
const char kDDNS[] = "ZANT.Core.DDNS.Record";
const char kSkyvanePermission[] = "ZANT.Core.Skyvane.Permission";
const char kSkyvane[] = "ZANT.Core.Skyvane";
const char kDefs[] = "ZANT.Core.Desktop.Defs";
const char kJSUIString[] = "ZANT.Core.Desktop.JSUIString";
const char kUIString[] = "ZANT.Core.Desktop.UIString";

ZANTAPITableEntry gTable[] = {
    {kFiles, 1, "get", FilesGetFunc},
    {kFiles, 1, "download", FilesDownloadFunc},
    {kFiles, 1, "list", FilesListFunc},
    {kFiles, 1, "preview", FilesPreviewFunc},
    {kFiles, 1, "preview_info", FilesPreviewInfoFunc},
    {kFiles, 1, "archive", FilesArchiveFunc},
    {kSharing, 1, "auth", SharingAuthFunc},
    {kAccessRequest, 1, "create", AccessRequestCreateFunc},
    {kInfo, 1, "get", InfoGetFunc},
    {kDDNS, 1, "list", DDNSRecordListFunc},
    {kSkyvanePermission, 1, "get", SkyvanePermissionGetFunc},
    {kSkyvane, 1, "get", SkyvaneGetFunc},
    {kDefs, 1, "getjs", DesktopDefsGetJSFunc},
    {kJSUIString, 1, "getjs", DesktopJSUIStringGetJSFunc},
    {kUIString, 1, "getjs", DesktopUIStringGetJSFunc},
    {nullptr, 0, nullptr, nullptr},
};

ZANTAPICheckEntry gCheckTable[] = {
    {kFiles, 1, "get", CheckAnyone, 0, 0},
    {kFiles, 1, "download", CheckAnyone, 0, 0},
    {kFiles, 1, "list", CheckAnyone, 0, 0},
    {kFiles, 1, "preview", CheckAnyone, 0, 0},
    {kFiles, 1, "preview_info", CheckAnyone, 0, 0},
    {kFiles, 1, "archive", CheckAnyone, 0, 0},
    {kSharing, 1, "auth", CheckAnyone, 0, 0},
    {kAccessRequest, 1, "create", CheckAnyone, 0, 0},
    {kInfo, 1, "get", CheckAdmin, 0, 0},
    {kDDNS, 1, "list", CheckAdmin, 0, 0},
    {kSkyvanePermission, 1, "get", CheckAdmin, 0, 0},
    {kSkyvane, 1, "get", CheckAdmin, 0, 0},
    {kDefs, 1, "getjs", CheckAnyone, 0, 0},
    {kJSUIString, 1, "getjs", CheckAnyone, 0, 0},
    {kUIString, 1, "getjs", CheckAnyone, 0, 0},
    {nullptr, 0, nullptr, nullptr, 0, 0},
};

}  // namespace

extern "C" __attribute__((visibility("default"))) ZANTAPITableEntry* GetAPITable() { return gTable; }

extern "C" __attribute__((visibility("default"))) ZANTAPICheckEntry* GetAPICheckTable() {
  return gCheckTable;
}
