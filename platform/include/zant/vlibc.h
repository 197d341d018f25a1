// Base library: key-value configuration files, the last error, users.
#pragma once

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// Key-value files hold lines `key="value"` (also `key=value`); blank lines and
// lines starting with "#" are skipped; the first line of a key counts.
// Paths are appliance paths (placed under ZANT_ROOT).
//
// Copies the value of `key` into `buffer` (NUL-terminated, cut to size-1)
// and returns its length plus 1 (so an empty value answers 1); 0 when the
// key is absent, -1 when the file cannot be read (error set).
int VLIBCFileGetKeyValue(const char* file, const char* key, char* buffer, int size, int flags);
// 1 when `key` holds exactly `value`, else 0.
int VLIBCFileCheckKeyValue(const char* file, const char* key, const char* value, int flags);

// The last error a base-library call set in this thread: a code, and the
// source file and line that set it.
int VLIBCErrGet(void);
const char* VLIBCErrorGetFile(void);
int VLIBCErrorGetLine(void);
void VLIBCErrSet(int code, const char* file, int line);

enum {
  VLIBC_ERR_NONE = 0x0000,
  VLIBC_ERR_BAD_PARAMETER = 0x0D00,
  VLIBC_ERR_NO_SUCH_USER = 0x1D00,
  VLIBC_ERR_FILE_OPEN = 0x0900,
  VLIBC_ERR_OUT_OF_MEMORY = 0x0200,
};

// A user of the appliance's user database "/usr/zant/etc/users".
typedef struct _tag_ZANTUSER {
  char* szName;
  uid_t uid;
  gid_t gid;
  char* szFullName;
  char* szHome;
  int isAdmin;
  int isDisabled;
} ZANTUSER, *PZANTUSER;

// 0 and a user record to free with ZANTUserFree, or a negative value with
// the error set (VLIBC_ERR_NO_SUCH_USER, VLIBC_ERR_FILE_OPEN, ...).
int ZANTUserGet(const char* name, PZANTUSER* user);
void ZANTUserFree(PZANTUSER user);

#ifdef __cplusplus
}
#endif
