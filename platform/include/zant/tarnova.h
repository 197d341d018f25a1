// Record types of the sync service's library, with the fields this product reads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Tarnova {

struct PermissionEntry {
  std::string permission_id;
  std::string type;
  std::string name;
  std::string role;
  bool inherited = false;
};

struct LabelInfo {
  std::string label_id;
  std::string name;
  std::string color;
  int32_t position = 0;
};

struct Capabilities {
  bool can_preview = false;
  bool can_read = false;
  bool can_write = false;
  bool can_delete = false;
  bool can_rename = false;
  bool can_comment = false;
  bool can_share = false;
  bool can_encrypt = false;
  bool can_organize = false;
};

struct OwnerInfo {
  std::string display_name;
  std::string name;
  uint32_t uid = 0;
};

struct FileInfo {
  enum Kind { kFile = 0, kDir = 1 };

  std::string file_id;
  std::string path;
  std::string nxo_path;
  std::string display_path;
  std::string original_path;
  std::string name;
  int kind = kFile;
  std::string parent_id;
  uint32_t created_time = 0;
  uint32_t access_time = 0;
  uint32_t modified_time = 0;
  uint32_t change_time = 0;
  uint64_t size = 0;
  Capabilities capabilities;
  uint64_t sync_id = 0;
  uint64_t max_id = 0;
  bool removed = false;
  bool encrypted = false;
  bool starred = false;
  bool shared = false;
  bool adv_shared = false;
  bool sync_to_device = false;
  std::vector<PermissionEntry> shared_with;
  std::string properties;      // JSON text
  std::string app_properties;  // JSON text
  OwnerInfo owner;
  std::string permanent_link;
  std::vector<LabelInfo> labels;
  std::string hash;
  std::string content_snippet;
  uint32_t revisions = 0;
  std::string content_type;
  uint32_t image_time = 0;
};

struct RevisionInfo {
  std::string version_id;
  uint32_t created_time = 0;
  uint32_t modified_time = 0;
  std::string hash;
  uint64_t size = 0;
  uint32_t editor_uid = 0;
  std::string editors;
};

struct MemberSelector {
  std::string type;
  std::string name;
  uint32_t uid = 0;
  uint32_t gid = 0;
};

struct LabelEditAction {
  std::string action;
  std::string label_id;
  std::string label_name;
  MemberSelector member;
};

struct StarEditAction {
  bool starred = false;
  MemberSelector member;
};

}  // namespace Tarnova
