// Handlers of the web APIs this library answers, and their checks.
#pragma once

#include "zant/webapi.h"

namespace plyth_services {

// "ZANT.BrindlexPlyth.Files" v1
void FilesGetFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void FilesDownloadFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void FilesListFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void FilesPreviewFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void FilesPreviewInfoFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void FilesArchiveFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
// "ZANT.BrindlexPlyth.AdvanceSharing.Public" v1
void SharingAuthFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void AccessRequestCreateFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);

// Appliance APIs answered from configuration files.
void InfoGetFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void DDNSRecordListFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void SkyvanePermissionGetFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void SkyvaneGetFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);

// The desktop framework's scripts ("getjs").
void DesktopDefsGetJSFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void DesktopJSUIStringGetJSFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);
void DesktopUIStringGetJSFunc(ZANT::APIRequest* request, ZANT::APIResponse* response);

// Everyone may call; the handler decides what the caller sees.
int CheckAnyone(ZANT::APIRequest* request);
// Administrators only: the signed-in user "admin" (the name other modules
// run these APIs as in-process) or any user signed in as administrator.
int CheckAdmin(ZANT::APIRequest* request);

}  // namespace plyth_services
