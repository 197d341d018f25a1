#include "plythctl.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <set>

#include "access_requests.h"
#include "content_store.h"
#include "items.h"
#include "service_errors.h"
#include "sharing.h"
#include "store.h"
#include "zant/userdb.h"
#include "zant_host/session.h"

namespace plyth_services {

namespace {

const char kUsage[] =
    "usage: plythctl [--root DIR] COMMAND\n"
    "  init\n"
    "  user add NAME [--uid N] [--password-stdin | --password P] [--admin]\n"
    "  user list\n"
    "  user remove NAME\n"
    "  file add OWNER /PATH [--from LOCALFILE] [--dir]\n"
    "  file list\n"
    "  file trash PATH\n"
    "  file restore PATH\n"
    "  grant PATH USER ROLE\n"
    "  link make PATH [--visibility members|signed_in|anyone] [--role ROLE]\n"
    "  share make PATH [--password P] [--expires \"YYYY-MM-DD HH:MM:SS\"|@EPOCH] [--role ROLE]\n"
    "  share list\n"
    "  share revoke ID\n"
    "  share password ID [--password P | --none]   (without either: one line from standard input)\n"
    "  requests list\n"
    "  requests grant PATH USER\n"
    "  requests deny PATH USER\n"
    "  url BASE\n"
    "PATH is OWNER:/PATH, /PATH (when one owner has it), id:FILE_ID or link:PERMANENT_LINK.\n"
    "ROLE is previewer, viewer, commenter or editor (grant also takes none).\n";

// A command's words after its name: positionals, and options given as
// "--name value" or "--flag".
struct Args {
  std::vector<std::string> positional;
  std::map<std::string, std::string> options;
  std::set<std::string> flags;
  bool Has(const std::string& name) const { return options.count(name) || flags.count(name); }
  std::string Option(const std::string& name) const {
    auto it = options.find(name);
    return it == options.end() ? std::string() : it->second;
  }
};

class Ctl {
 public:
  Ctl(std::istream& in, std::ostream& out, std::ostream& err) : in_(in), out_(out), err_(err) {}
  int Run(std::vector<std::string> args);

 private:
  int Usage(const std::string& why);
  int Fail(int code, const std::string& message);
  // Maps a store call's code onto an exit code, with a message.
  int FromService(int code, const std::string& what);
  bool Split(const std::vector<std::string>& words, size_t from, const std::set<std::string>& valued,
             const std::set<std::string>& flags, Args* args);
  bool OpenStore();
  int ResolveItem(const std::string& text, Item* item);

  int Init();
  int UserAdd(const Args& args);
  int UserList();
  int UserRemove(const std::string& name);
  int FileAdd(const Args& args);
  int FileList();
  int FileTrash(const std::string& path, bool removed);
  int Grant(const Args& args);
  int LinkMake(const Args& args);
  int ShareMake(const Args& args);
  int ShareList();
  int ShareRevoke(const std::string& id);
  int SharePassword(const Args& args);
  int RequestsList();
  int RequestsAnswer(const Args& args, bool grant);
  int Url(const std::string& base);

  std::istream& in_;
  std::ostream& out_;
  std::ostream& err_;
  std::unique_ptr<Store> store_;
};

std::string FormatTime(int64_t when) {
  time_t t = static_cast<time_t>(when);
  struct tm local;
  char text[32];
  if (localtime_r(&t, &local) == nullptr || strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local) == 0) {
    return "@" + std::to_string(when);
  }
  return text;
}

int ExitForUserStatus(ZANT::UserDB::Status status) {
  using ZANT::UserDB::Status;
  switch (status) {
    case Status::kOk:
      return kExitOk;
    case Status::kNoSuchUser:
      return kExitNotFound;
    case Status::kUserExists:
    case Status::kUidInUse:
      return kExitConflict;
    case Status::kBadParameter:
      return kExitBadValue;
    default:
      return kExitStore;
  }
}

bool ParseUid(const std::string& text, uid_t* uid) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  long value = strtol(text.c_str(), nullptr, 10);
  if (value <= 0) return false;
  *uid = static_cast<uid_t>(value);
  return true;
}

std::string ItemLabel(const Item& item) { return item.owner_name + ":" + item.path; }

}  // namespace

bool ParseExpiry(const std::string& text, int64_t* when) {
  if (!text.empty() && text[0] == '@') {
    const std::string digits = text.substr(1);
    if (digits.empty() || digits.size() > 15 || digits.find_first_not_of("0123456789") != std::string::npos) {
      return false;
    }
    *when = static_cast<int64_t>(strtoll(digits.c_str(), nullptr, 10));
    return true;
  }
  int year, month, day, hour, minute, second;
  int used = -1;
  if (text.size() != 19 ||
      sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%n", &year, &month, &day, &hour, &minute, &second,
             &used) != 6 ||
      used != 19 || text[4] != '-' || text[7] != '-' || text[10] != ' ' || text[13] != ':' ||
      text[16] != ':') {
    return false;
  }
  struct tm fields = {};
  fields.tm_year = year - 1900;
  fields.tm_mon = month - 1;
  fields.tm_mday = day;
  fields.tm_hour = hour;
  fields.tm_min = minute;
  fields.tm_sec = second;
  fields.tm_isdst = -1;
  time_t t = mktime(&fields);
  // mktime moves 31 April to 1 May; such a date was not a date.
  if (t == static_cast<time_t>(-1) || fields.tm_year != year - 1900 || fields.tm_mon != month - 1 ||
      fields.tm_mday != day || fields.tm_hour != hour || fields.tm_min != minute || fields.tm_sec != second) {
    return false;
  }
  *when = static_cast<int64_t>(t);
  return true;
}

int Ctl::Usage(const std::string& why) {
  if (!why.empty()) err_ << "plythctl: " << why << "\n";
  err_ << kUsage;
  return kExitUsage;
}

int Ctl::Fail(int code, const std::string& message) {
  err_ << "plythctl: " << message << "\n";
  return code;
}

int Ctl::FromService(int code, const std::string& what) {
  switch (code) {
    case kOk:
      return kExitOk;
    case kErrNoSuchItem:
      return Fail(kExitNotFound, "no such item: " + what);
    case kErrNoSuchSharingLink:
      return Fail(kExitNotFound, "no such sharing link: " + what);
    case kErrExists:
      return Fail(kExitConflict, "already exists: " + what);
    case kErrAmbiguous:
      return Fail(kExitConflict, what + " names items of several owners; write OWNER:" + what);
    case kErrBadParameter:
      return Fail(kExitBadValue, "not a usable path: " + what);
    default:
      return Fail(kExitStore, "store error" + (store_ ? ": " + store_->LastError() : std::string()));
  }
}

bool Ctl::Split(const std::vector<std::string>& words, size_t from, const std::set<std::string>& valued,
                const std::set<std::string>& flags, Args* args) {
  for (size_t i = from; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word.size() > 2 && word.compare(0, 2, "--") == 0) {
      if (valued.count(word)) {
        if (i + 1 >= words.size()) {
          Usage(word + " needs a value");
          return false;
        }
        args->options[word] = words[++i];
      } else if (flags.count(word)) {
        args->flags.insert(word);
      } else {
        Usage("unknown option " + word);
        return false;
      }
    } else {
      args->positional.push_back(word);
    }
  }
  return true;
}

bool Ctl::OpenStore() {
  std::string error;
  store_ = Store::Open(&error);
  if (!store_) err_ << "plythctl: cannot open the store: " << error << "\n";
  return store_ != nullptr;
}

int Ctl::ResolveItem(const std::string& text, Item* item) {
  if (text.compare(0, 3, "id:") == 0) return FindItemById(*store_, text.substr(3), item);
  if (text.compare(0, 5, "link:") == 0) return FindItemByLink(*store_, text.substr(5), item);
  size_t colon = text.find(":/");
  if (colon != std::string::npos && colon > 0 && text[0] != '/') {
    return FindItemByPath(*store_, text.substr(0, colon), text.substr(colon + 1), item);
  }
  if (text.empty() || text[0] != '/') return kErrBadParameter;
  std::vector<Item> items;
  int rc = FindItemsByPath(*store_, text, &items);
  if (rc != kOk) return rc;
  if (items.empty()) return kErrNoSuchItem;
  if (items.size() > 1) return kErrAmbiguous;
  *item = items[0];
  return kOk;
}

int Ctl::Run(std::vector<std::string> words) {
  if (words.size() >= 2 && words[0] == "--root") {
    setenv("ZANT_ROOT", words[1].c_str(), 1);
    words.erase(words.begin(), words.begin() + 2);
  }
  if (words.empty()) return Usage("no command");
  const std::string& command = words[0];
  const std::string sub = words.size() > 1 ? words[1] : std::string();
  if (command == "help" || command == "--help") {
    out_ << kUsage;
    return kExitOk;
  }
  Args args;
  auto split = [&](size_t from, const std::set<std::string>& valued, const std::set<std::string>& flags,
                   size_t positionals) {
    if (!Split(words, from, valued, flags, &args)) return false;
    if (args.positional.size() != positionals) {
      Usage("wrong number of arguments for " + command);
      return false;
    }
    return true;
  };
  if (command == "init") {
    return split(1, {}, {}, 0) ? Init() : kExitUsage;
  }
  if (command == "user" && sub == "add") {
    return split(2, {"--uid", "--password"}, {"--password-stdin", "--admin"}, 1) ? UserAdd(args) : kExitUsage;
  }
  if (command == "user" && sub == "list") return split(2, {}, {}, 0) ? UserList() : kExitUsage;
  if (command == "user" && sub == "remove") {
    return split(2, {}, {}, 1) ? UserRemove(args.positional[0]) : kExitUsage;
  }
  if (command == "url") return split(1, {}, {}, 1) ? Url(args.positional[0]) : kExitUsage;

  // The rest work on the store.
  bool known = true;
  if (command == "file" && sub == "add") {
    known = split(2, {"--from"}, {"--dir"}, 2);
  } else if (command == "file" && (sub == "list")) {
    known = split(2, {}, {}, 0);
  } else if (command == "file" && (sub == "trash" || sub == "restore")) {
    known = split(2, {}, {}, 1);
  } else if (command == "grant") {
    known = split(1, {}, {}, 3);
  } else if (command == "link" && sub == "make") {
    known = split(2, {"--visibility", "--role"}, {}, 1);
  } else if (command == "share" && sub == "make") {
    known = split(2, {"--password", "--expires", "--role"}, {}, 1);
  } else if (command == "share" && (sub == "list")) {
    known = split(2, {}, {}, 0);
  } else if (command == "share" && sub == "revoke") {
    known = split(2, {}, {}, 1);
  } else if (command == "share" && sub == "password") {
    known = split(2, {"--password"}, {"--none"}, 1);
  } else if (command == "requests" && sub == "list") {
    known = split(2, {}, {}, 0);
  } else if (command == "requests" && (sub == "grant" || sub == "deny")) {
    known = split(2, {}, {}, 2);
  } else {
    return Usage("unknown command: " + command + (sub.empty() ? "" : " " + sub));
  }
  if (!known) return kExitUsage;
  if (!OpenStore()) return kExitStore;
  if (command == "file" && sub == "add") return FileAdd(args);
  if (command == "file" && sub == "list") return FileList();
  if (command == "file") return FileTrash(args.positional[0], sub == "trash");
  if (command == "grant") return Grant(args);
  if (command == "link") return LinkMake(args);
  if (command == "share" && sub == "make") return ShareMake(args);
  if (command == "share" && sub == "list") return ShareList();
  if (command == "share" && sub == "password") return SharePassword(args);
  if (command == "requests" && sub == "list") return RequestsList();
  if (command == "requests") return RequestsAnswer(args, sub == "grant");
  return ShareRevoke(args.positional[0]);
}

int Ctl::Init() {
  if (!OpenStore()) return kExitStore;
  out_ << Store::DatabaseFile() << "\n";
  return kExitOk;
}

int Ctl::UserAdd(const Args& args) {
  ZANT::UserDB::User user;
  user.name = args.positional[0];
  user.gid = ZANT::UserDB::kUsersGid;
  user.home = "/var/services/homes/" + user.name;
  user.admin = args.Has("--admin");
  if (args.Has("--uid") && !ParseUid(args.Option("--uid"), &user.uid)) {
    return Fail(kExitBadValue, "not a uid: " + args.Option("--uid"));
  }
  if (args.Has("--password") && args.Has("--password-stdin")) {
    return Usage("give --password or --password-stdin, not both");
  }
  std::string password = args.Option("--password");
  if (args.Has("--password-stdin")) {
    std::getline(in_, password);
    if (!password.empty() && password.back() == '\r') password.pop_back();
  }
  ZANT::UserDB::Status status = ZANT::UserDB::AddUser(&user, password);
  if (status != ZANT::UserDB::Status::kOk) {
    return Fail(ExitForUserStatus(status), std::string("cannot add user ") + user.name + ": " +
                                               ZANT::UserDB::StatusText(status));
  }
  out_ << user.name << "\t" << user.uid << "\n";
  return kExitOk;
}

int Ctl::UserList() {
  std::vector<ZANT::UserDB::User> users;
  ZANT::UserDB::Status status = ZANT::UserDB::ListUsers(&users);
  if (status != ZANT::UserDB::Status::kOk) {
    return Fail(ExitForUserStatus(status), ZANT::UserDB::StatusText(status));
  }
  for (const ZANT::UserDB::User& user : users) {
    out_ << user.name << "\t" << user.uid << "\t" << (user.admin ? "admin" : "user")
         << (user.disabled ? "\tdisabled" : "") << "\n";
  }
  return kExitOk;
}

// The store is cleared before the account goes, so that a run stopped by a
// store error can simply be repeated.
int Ctl::UserRemove(const std::string& name) {
  ZANT::UserDB::User user;
  ZANT::UserDB::Status status = ZANT::UserDB::FindUser(name, &user);
  if (status != ZANT::UserDB::Status::kOk) {
    return Fail(ExitForUserStatus(status), "cannot remove user " + name + ": " + ZANT::UserDB::StatusText(status));
  }
  if (!OpenStore()) return kExitStore;
  int rc = RemoveAccountItems(*store_, name);
  if (rc != kOk) return FromService(rc, name);
  status = ZANT::UserDB::RemoveUser(name);
  if (status != ZANT::UserDB::Status::kOk) {
    return Fail(ExitForUserStatus(status),
                "cannot remove user " + name + ": " + ZANT::UserDB::StatusText(status));
  }
  zant_host::SessionStore().RemoveUser(name);
  return kExitOk;
}

int Ctl::FileAdd(const Args& args) {
  NewItem wanted;
  wanted.owner_name = args.positional[0];
  wanted.path = args.positional[1];
  wanted.kind = args.Has("--dir") ? 1 : 0;
  if (args.Has("--dir") && args.Has("--from")) return Usage("a folder takes no --from");
  if (!IsItemPath(wanted.path)) return Fail(kExitBadValue, "not a usable path: " + wanted.path);
  ZANT::UserDB::User owner;
  ZANT::UserDB::Status status = ZANT::UserDB::FindUser(wanted.owner_name, &owner);
  if (status != ZANT::UserDB::Status::kOk) {
    return Fail(ExitForUserStatus(status), "no such user: " + wanted.owner_name);
  }
  wanted.owner_uid = owner.uid;
  if (args.Has("--from")) {
    int rc = StoreContent(args.Option("--from"), &wanted.hash, &wanted.size);
    if (rc == kErrNoSuchItem) return Fail(kExitNotFound, "cannot read " + args.Option("--from"));
    if (rc != kOk) return Fail(kExitStore, "cannot store the content of " + args.Option("--from"));
  } else if (wanted.kind == 0 && StoreEmptyContent(&wanted.hash) != kOk) {
    return Fail(kExitStore, "cannot store the empty content");
  }
  Item added;
  int rc = AddItem(*store_, wanted, &added);
  if (rc == kErrBadParameter) return Fail(kExitBadValue, "a file stands above " + wanted.path);
  if (rc != kOk) return FromService(rc, wanted.owner_name + ":" + wanted.path);
  out_ << added.file_id << "\t" << added.permanent_link << "\n";
  return kExitOk;
}

int Ctl::FileList() {
  std::vector<Item> items;
  int rc = ListItems(*store_, &items);
  if (rc != kOk) return FromService(rc, "");
  for (const Item& item : items) {
    out_ << ItemLabel(item) << "\t" << (item.kind == 1 ? "dir" : "file") << "\t" << item.size << "\t"
         << (item.removed ? "removed" : "-") << "\t" << item.file_id << "\t" << item.permanent_link
         << "\t" << VisibilityName(item.visibility) << "\t" << RoleName(item.link_role) << "\n";
  }
  return kExitOk;
}

int Ctl::FileTrash(const std::string& path, bool removed) {
  Item item;
  int rc = ResolveItem(path, &item);
  if (rc == kOk) rc = SetRemoved(*store_, item, removed);
  return FromService(rc, path);
}

int Ctl::Grant(const Args& args) {
  const std::string& path = args.positional[0];
  const std::string& member = args.positional[1];
  const std::string& roleText = args.positional[2];
  Role role = Role::kNone;
  if (roleText != "none" && !ParseGrantableRole(roleText, &role)) {
    return Fail(kExitBadValue, "not a role: " + roleText);
  }
  Item item;
  int rc = ResolveItem(path, &item);
  if (rc != kOk) return FromService(rc, path);
  if (member == item.owner_name) return Fail(kExitBadValue, member + " owns " + path);
  ZANT::UserDB::User user;
  ZANT::UserDB::Status status = ZANT::UserDB::FindUser(member, &user);
  if (status != ZANT::UserDB::Status::kOk) {
    return Fail(ExitForUserStatus(status), "no such user: " + member);
  }
  return FromService(SetMemberRole(*store_, item, member, role), path);
}

int Ctl::LinkMake(const Args& args) {
  const std::string& path = args.positional[0];
  Item item;
  int rc = ResolveItem(path, &item);
  if (rc != kOk) return FromService(rc, path);
  Visibility visibility = item.visibility;
  Role role = item.link_role;
  if (args.Has("--visibility") && !ParseVisibility(args.Option("--visibility"), &visibility)) {
    return Fail(kExitBadValue, "not a visibility: " + args.Option("--visibility"));
  }
  if (args.Has("--role") && !ParseGrantableRole(args.Option("--role"), &role)) {
    return Fail(kExitBadValue, "not a role: " + args.Option("--role"));
  }
  if (visibility != item.visibility || role != item.link_role) {
    rc = SetLinkAccess(*store_, item, visibility, role);
    if (rc != kOk) return FromService(rc, path);
  }
  out_ << item.permanent_link << "\n";
  return kExitOk;
}

int Ctl::ShareMake(const Args& args) {
  const std::string& path = args.positional[0];
  Role role = Role::kViewer;
  if (args.Has("--role") && !ParseGrantableRole(args.Option("--role"), &role)) {
    return Fail(kExitBadValue, "not a role: " + args.Option("--role"));
  }
  int64_t expires = 0;
  if (args.Has("--expires") && (!ParseExpiry(args.Option("--expires"), &expires) || expires <= 0)) {
    return Fail(kExitBadValue, "not a date (\"YYYY-MM-DD HH:MM:SS\" or @EPOCH): " + args.Option("--expires"));
  }
  if (args.Has("--password") && args.Option("--password").empty()) {
    return Fail(kExitBadValue, "an empty password; leave --password out for a link without one");
  }
  Item item;
  int rc = ResolveItem(path, &item);
  if (rc != kOk) return FromService(rc, path);
  SharingLink made;
  rc = CreateSharingLink(*store_, item, args.Option("--password"), expires, role, &made);
  if (rc != kOk) return FromService(rc, path);
  out_ << made.id << "\n";
  return kExitOk;
}

int Ctl::ShareList() {
  std::vector<SharingLink> links;
  int rc = ListSharingLinks(*store_, &links);
  if (rc != kOk) return FromService(rc, "");
  for (const SharingLink& link : links) {
    Item item;
    std::string label = FindItemByLink(*store_, link.permanent_link, &item) == kOk ? ItemLabel(item) : "?";
    out_ << link.id << "\t" << label << "\t" << link.permanent_link << "\t" << RoleName(link.role) << "\t"
         << (link.expires == 0 ? std::string("never") : FormatTime(link.expires)) << "\t"
         << (link.password_hash.empty() ? "-" : "password") << "\n";
  }
  return kExitOk;
}

int Ctl::ShareRevoke(const std::string& id) { return FromService(RevokeSharingLink(*store_, id), id); }

int Ctl::SharePassword(const Args& args) {
  const std::string& id = args.positional[0];
  if (args.Has("--none") && args.Has("--password")) return Usage("give --password or --none, not both");
  std::string password = args.Option("--password");
  if (!args.Has("--none") && !args.Has("--password")) {
    std::getline(in_, password);
    if (!password.empty() && password.back() == '\r') password.pop_back();
  }
  if (!args.Has("--none") && password.empty()) {
    return Fail(kExitBadValue, "an empty password; give --none for a link without one");
  }
  return FromService(SetSharingLinkPassword(*store_, id, password), id);
}

// One line per request: item, requester, time, message.
int Ctl::RequestsList() {
  std::vector<AccessRequest> requests;
  int rc = ListAccessRequests(*store_, &requests);
  if (rc != kOk) return FromService(rc, "");
  for (const AccessRequest& request : requests) {
    Item item;
    std::string label = FindItemById(*store_, request.item_id, &item) == kOk ? ItemLabel(item) : "?";
    out_ << label << "\t" << request.requester << "\t" << FormatTime(request.at) << "\t" << request.message
         << "\n";
  }
  return kExitOk;
}

// Granting makes the requester a member with the role of the item's link.
int Ctl::RequestsAnswer(const Args& args, bool grant) {
  const std::string& path = args.positional[0];
  const std::string& requester = args.positional[1];
  Item item;
  int rc = ResolveItem(path, &item);
  if (rc != kOk) return FromService(rc, path);
  rc = grant ? GrantAccessRequest(*store_, item, requester) : RemoveAccessRequest(*store_, item, requester);
  return FromService(rc, "request of " + requester + " on " + path);
}

int Ctl::Url(const std::string& baseText) {
  std::string base = baseText;
  while (!base.empty() && base.back() == '/') base.pop_back();
  if (base.empty()) return Fail(kExitBadValue, "an empty base URL");
  if (!OpenStore()) return kExitStore;
  std::vector<Item> items;
  std::vector<SharingLink> links;
  int rc = ListItems(*store_, &items);
  if (rc == kOk) rc = ListSharingLinks(*store_, &links);
  if (rc != kOk) return FromService(rc, "");
  for (const Item& item : items) {
    out_ << base << "/d/f/" << item.permanent_link << "\t" << ItemLabel(item) << "\n";
  }
  for (const SharingLink& link : links) {
    Item item;
    std::string label = FindItemByLink(*store_, link.permanent_link, &item) == kOk ? ItemLabel(item) : "?";
    out_ << base << "/d/s/" << link.id << "/" << link.permanent_link << "\t" << label << " (sharing link)\n";
  }
  return kExitOk;
}

int RunPlythctl(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
                std::ostream& err) {
  Ctl ctl(in, out, err);
  return ctl.Run(args);
}

}  // namespace plyth_services
