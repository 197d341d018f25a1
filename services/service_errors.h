// Error codes the link service answers with ("error"."code" of a failed
// result). The shard module acts on 1002, 1037 and 1038 and treats every
// other code of "get" as an invalid link.
#pragma once

namespace plyth_services {

enum ServiceError {
  kOk = 0,
  kErrBadParameter = 101,        // a parameter is missing or malformed
  kErrNoSuchItem = 408,          // no item with that permanent link or file id
  kErrNoAccess = 1002,           // the caller may not see the item (download: may not read it)
  kErrNotAFile = 1004,           // download of a folder
  kErrNotAFolder = 1005,         // listing or archive of a file
  kErrNoSuchSharingLink = 1036,  // unknown or revoked sharing link
  kErrPasswordNeeded = 1037,     // password missing or wrong
  kErrLinkExpired = 1038,        // the sharing link's expiry time has been reached
  kErrTooManyAttempts = 1039,    // too many wrong passwords for this link from this address lately
  kErrBadToken = 1040,           // unknown, expired or forged token, or one of another link
  kErrStore = 1050,              // the store cannot be opened or written
  kErrNoPreview = 1060,          // no rendition of this item: its type, or a damaged, empty or too large file
  kErrArchiveTooLarge = 1061,    // more entries or bytes than one archive may carry
  // Administration only (plythctl), never answered by a web API.
  kErrExists = 1051,             // an item with that path, or that name, exists
  kErrAmbiguous = 1052,          // a bare path names items of several owners
  // Inside the download only: an item in the recycle bin, answered as 408
  // to scripts and as "410 Gone" to a browser.
  kErrItemRemoved = 1053,
};

}  // namespace plyth_services
