// The sync service's file, revision and label records as the JSON objects
// that every web API of the product answers with.
#include <syslog.h>

#include <cstdio>
#include <exception>

#include "plyth_utils.h"

namespace {

// Log lines name the line of the shared source where the failure was met;
// other modules match on these numbers, so they stay fixed.
constexpr int kPropertiesLine = 137;
constexpr int kAppPropertiesLine = 142;

const char* KindName(int kind) {
  switch (kind) {
    case Tarnova::FileInfo::kDir:
      return "dir";
    case Tarnova::FileInfo::kFile:
      return "file";
    default:
      // QUIRK: the empty text; there is no third kind name.
      return "";
  }
}

Json::Value CapabilitiesToJson(const Tarnova::Capabilities& caps) {
  Json::Value out(Json::objectValue);
  out["can_preview"] = caps.can_preview;
  out["can_read"] = caps.can_read;
  out["can_write"] = caps.can_write;
  out["can_delete"] = caps.can_delete;
  out["can_rename"] = caps.can_rename;
  out["can_comment"] = caps.can_comment;
  out["can_share"] = caps.can_share;
  out["can_encrypt"] = caps.can_encrypt;
  out["can_organize"] = caps.can_organize;
  return out;
}

Json::Value PermissionToJson(const Tarnova::PermissionEntry& entry) {
  Json::Value out(Json::objectValue);
  out["permission_id"] = entry.permission_id;
  out["type"] = entry.type;
  out["name"] = entry.name;
  out["role"] = entry.role;
  out["inherited"] = entry.inherited;
  return out;
}

// The label as it appears inside a file record: identifier, colour, name.
Json::Value FileLabelToJson(const Tarnova::LabelInfo& label) {
  Json::Value out(Json::objectValue);
  out["label_id"] = label.label_id;
  out["color"] = label.color;
  out["name"] = label.name;
  return out;
}

// The reader refuses texts nested deeper than its stack limit by throwing;
// such a text counts as one that cannot be parsed.
bool ParseInto(Json::Reader& reader, const std::string& text, Json::Value& member) {
  try {
    return reader.parse(text, member, true);
  } catch (const std::exception&) {
    return false;
  }
}

std::string VersionText(uint64_t syncId) {
  char buffer[32];
  snprintf(buffer, sizeof(buffer), "%llu", static_cast<unsigned long long>(syncId));
  return buffer;
}

}  // namespace

int ConvertFileInfoToJSon(const Tarnova::FileInfo& info, Json::Value& out) {
  Json::Value permissions(Json::arrayValue);
  Json::Value labels(Json::arrayValue);
  Json::Reader reader;

  out["file_id"] = info.file_id;
  out["path"] = info.path;
  out["nxo_path"] = info.nxo_path;
  out["display_path"] = info.display_path;
  out["original_path"] = info.original_path;
  out["name"] = info.name;
  out["type"] = KindName(info.kind);
  out["parent_id"] = info.parent_id;
  out["created_time"] = Json::UInt(info.created_time);
  out["access_time"] = Json::UInt(info.access_time);
  out["modified_time"] = Json::UInt(info.modified_time);
  out["change_time"] = Json::UInt(info.change_time);
  out["size"] = Json::UInt64(info.size);
  out["capabilities"] = CapabilitiesToJson(info.capabilities);
  out["version_id"] = VersionText(info.sync_id);
  out["sync_id"] = Json::UInt64(info.sync_id);
  out["max_id"] = Json::UInt64(info.max_id);
  out["removed"] = info.removed;
  out["encrypted"] = info.encrypted;
  out["starred"] = info.starred;
  out["shared"] = info.shared;
  out["adv_shared"] = info.adv_shared;
  out["sync_to_device"] = info.sync_to_device;

  for (const Tarnova::PermissionEntry& entry : info.shared_with) {
    permissions.append(PermissionToJson(entry));
  }
  out["shared_with"] = permissions;

  // Parsed straight into the member; on failure the caller gets the keys
  // written so far and whatever the reader left in the member.
  if (!ParseInto(reader, info.properties, out["properties"])) {
    syslog(LOG_ERR, "%s:%d Properties cannot be parsed.\n", PLYTH_UTILS_SOURCE, kPropertiesLine);
    return -1;
  }
  if (!ParseInto(reader, info.app_properties, out["app_properties"])) {
    syslog(LOG_ERR, "%s:%d App properties cannot be parsed.\n", PLYTH_UTILS_SOURCE,
           kAppPropertiesLine);
    return -1;
  }

  Json::Value owner(Json::objectValue);
  owner["display_name"] = info.owner.display_name;
  owner["name"] = info.owner.name;
  owner["uid"] = Json::UInt(info.owner.uid);
  out["owner"] = owner;
  out["permanent_link"] = info.permanent_link;
  for (const Tarnova::LabelInfo& label : info.labels) {
    labels.append(FileLabelToJson(label));
  }
  out["labels"] = labels;
  out["hash"] = info.hash;
  out["content_snippet"] = info.content_snippet;
  out["revisions"] = Json::UInt(info.revisions);
  out["content_type"] = info.content_type;
  Json::Value imageMetadata(Json::objectValue);
  imageMetadata["time"] = Json::UInt(info.image_time);
  out["image_metadata"] = imageMetadata;
  return 0;
}

int ConvertVersionInfoToJSon(const Tarnova::RevisionInfo& info, Json::Value& out) {
  out["version_id"] = info.version_id;
  out["created_time"] = Json::UInt(info.created_time);
  out["modified_time"] = Json::UInt(info.modified_time);
  out["hash"] = info.hash;
  out["size"] = Json::UInt64(info.size);
  out["editor_uid"] = Json::UInt(info.editor_uid);
  out["editors"] = info.editors;
  return 0;
}

int ConvertLabelInfoToJSon(const Tarnova::LabelInfo& info, Json::Value& out) {
  out["label_id"] = info.label_id;
  out["name"] = info.name;
  out["color"] = info.color;
  out["position"] = Json::Int(info.position);
  return 0;
}
