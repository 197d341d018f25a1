#include "plythctl.h"

#include <algorithm>
#include <cstdlib>
#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <set>

#include "access_requests.h"
#include "clock.h"
#include "content_store.h"
#include "items.h"
#include "service_errors.h"
#include "sharing.h"
#include "store.h"
#include "zant/userdb.h"
#include "zant_host/session.h"

namespace plyth_services {

namespace {

// Words printed after the command lines of the usage text.
const char kUsageNotes[] =
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

class Ctl;

// One row per command: its words are split, checked and dispatched, and
// its line of the usage text written, from the row alone.
struct Command {
  const char* name;
  const char* sub = nullptr;  // the second word, or nullptr for a one-word command
  std::vector<std::string> options = {};  // each takes the next word as its value
  std::vector<std::string> flags = {};
  size_t arguments = 0;  // how many positional words
  bool store = false;    // the store is opened before the handler runs
  int (Ctl::*run)(const Args&);
  const char* synopsis = "";  // the usage line after the command's words
};

class Ctl {
 public:
  Ctl(std::istream& in, std::ostream& out, std::ostream& err) : in_(in), out_(out), err_(err) {}
  int Run(std::vector<std::string> args);

 private:
  static const Command kCommands[];
  static std::string UsageText();
  static const Command* FindCommand(const std::string& name, const std::string& sub);

  int Usage(const std::string& why);
  int Fail(int code, const std::string& message);
  // Maps a store call's code onto an exit code, with a message.
  int FromService(int code, const std::string& what);
  bool Split(const std::vector<std::string>& words, size_t from, const Command& command, Args* args);
  bool OpenStore();
  // One line of standard input, without its line end (CR LF or LF).
  std::string ReadLine();
  int ResolveItem(const std::string& text, Item* item);

  int Init(const Args&);
  int UserAdd(const Args& args);
  int UserList(const Args&);
  int UserRemove(const Args& args);
  int FileAdd(const Args& args);
  int FileList(const Args&);
  int FileTrash(const Args& args);
  int FileRestore(const Args& args);
  int SetFileRemoved(const std::string& path, bool removed);
  int Grant(const Args& args);
  int LinkMake(const Args& args);
  int ShareMake(const Args& args);
  int ShareList(const Args&);
  int ShareRevoke(const Args& args);
  int SharePassword(const Args& args);
  int RequestsList(const Args&);
  int RequestsGrant(const Args& args);
  int RequestsDeny(const Args& args);
  int AnswerRequest(const Args& args, bool grant);
  int Url(const Args& args);

  std::istream& in_;
  std::ostream& out_;
  std::ostream& err_;
  std::unique_ptr<Store> store_;
};

// In the order of the usage text. A command without `store` opens the
// store itself, if at all (user commands need only the user database).
const Command Ctl::kCommands[] = {
    {.name = "init", .run = &Ctl::Init},
    {.name = "user", .sub = "add", .options = {"--uid", "--password"}, .flags = {"--password-stdin", "--admin"},
     .arguments = 1, .run = &Ctl::UserAdd,
     .synopsis = "NAME [--uid N] [--password-stdin | --password P] [--admin]"},
    {.name = "user", .sub = "list", .run = &Ctl::UserList},
    {.name = "user", .sub = "remove", .arguments = 1, .run = &Ctl::UserRemove, .synopsis = "NAME"},
    {.name = "file", .sub = "add", .options = {"--from"}, .flags = {"--dir"}, .arguments = 2, .store = true,
     .run = &Ctl::FileAdd, .synopsis = "OWNER /PATH [--from LOCALFILE] [--dir]"},
    {.name = "file", .sub = "list", .store = true, .run = &Ctl::FileList},
    {.name = "file", .sub = "trash", .arguments = 1, .store = true, .run = &Ctl::FileTrash, .synopsis = "PATH"},
    {.name = "file", .sub = "restore", .arguments = 1, .store = true, .run = &Ctl::FileRestore,
     .synopsis = "PATH"},
    {.name = "grant", .arguments = 3, .store = true, .run = &Ctl::Grant,
     .synopsis = "PATH USER ROLE"},
    {.name = "link", .sub = "make", .options = {"--visibility", "--role"}, .arguments = 1, .store = true,
     .run = &Ctl::LinkMake, .synopsis = "PATH [--visibility members|signed_in|anyone] [--role ROLE]"},
    {.name = "share", .sub = "make", .options = {"--password", "--expires", "--role"}, .arguments = 1,
     .store = true, .run = &Ctl::ShareMake,
     .synopsis = "PATH [--password P] [--expires \"YYYY-MM-DD HH:MM:SS\"|@EPOCH] [--role ROLE]"},
    {.name = "share", .sub = "list", .store = true, .run = &Ctl::ShareList},
    {.name = "share", .sub = "revoke", .arguments = 1, .store = true, .run = &Ctl::ShareRevoke,
     .synopsis = "ID"},
    {.name = "share", .sub = "password", .options = {"--password"}, .flags = {"--none"}, .arguments = 1,
     .store = true, .run = &Ctl::SharePassword,
     .synopsis = "ID [--password P | --none]   (without either: one line from standard input)"},
    {.name = "requests", .sub = "list", .store = true, .run = &Ctl::RequestsList},
    {.name = "requests", .sub = "grant", .arguments = 2, .store = true, .run = &Ctl::RequestsGrant,
     .synopsis = "PATH USER"},
    {.name = "requests", .sub = "deny", .arguments = 2, .store = true, .run = &Ctl::RequestsDeny,
     .synopsis = "PATH USER"},
    {.name = "url", .arguments = 1, .run = &Ctl::Url, .synopsis = "BASE"},
};

std::string Ctl::UsageText() {
  std::string text = "usage: plythctl [--root DIR] COMMAND\n";
  for (const Command& command : kCommands) {
    text += std::string("  ") + command.name;
    if (command.sub != nullptr) text += std::string(" ") + command.sub;
    if (*command.synopsis != '\0') text += std::string(" ") + command.synopsis;
    text += "\n";
  }
  return text + kUsageNotes;
}

const Command* Ctl::FindCommand(const std::string& name, const std::string& sub) {
  for (const Command& command : kCommands) {
    if (name == command.name && (command.sub == nullptr || sub == command.sub)) return &command;
  }
  return nullptr;
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

int Ctl::Usage(const std::string& why) {
  if (!why.empty()) err_ << "plythctl: " << why << "\n";
  err_ << UsageText();
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

bool Ctl::Split(const std::vector<std::string>& words, size_t from, const Command& command, Args* args) {
  auto listed = [](const std::vector<std::string>& names, const std::string& word) {
    return std::find(names.begin(), names.end(), word) != names.end();
  };
  for (size_t i = from; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word.size() > 2 && word.compare(0, 2, "--") == 0) {
      if (listed(command.options, word)) {
        if (i + 1 >= words.size()) {
          Usage(word + " needs a value");
          return false;
        }
        args->options[word] = words[++i];
      } else if (listed(command.flags, word)) {
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

std::string Ctl::ReadLine() {
  std::string line;
  std::getline(in_, line);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
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
  const std::string& name = words[0];
  const std::string sub = words.size() > 1 ? words[1] : std::string();
  if (name == "help" || name == "--help") {
    out_ << UsageText();
    return kExitOk;
  }
  const Command* command = FindCommand(name, sub);
  if (command == nullptr) return Usage("unknown command: " + name + (sub.empty() ? "" : " " + sub));
  Args args;
  if (!Split(words, command->sub == nullptr ? 1 : 2, *command, &args)) return kExitUsage;
  if (args.positional.size() != command->arguments) return Usage("wrong number of arguments for " + name);
  if (command->store && !OpenStore()) return kExitStore;
  return (this->*command->run)(args);
}

int Ctl::Init(const Args&) {
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
  const std::string password = args.Has("--password-stdin") ? ReadLine() : args.Option("--password");
  ZANT::UserDB::Status status = ZANT::UserDB::AddUser(&user, password);
  if (status != ZANT::UserDB::Status::kOk) {
    return Fail(ExitForUserStatus(status), std::string("cannot add user ") + user.name + ": " +
                                               ZANT::UserDB::StatusText(status));
  }
  out_ << user.name << "\t" << user.uid << "\n";
  return kExitOk;
}

int Ctl::UserList(const Args&) {
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
int Ctl::UserRemove(const Args& args) {
  const std::string& name = args.positional[0];
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

int Ctl::FileList(const Args&) {
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

int Ctl::FileTrash(const Args& args) { return SetFileRemoved(args.positional[0], true); }

int Ctl::FileRestore(const Args& args) { return SetFileRemoved(args.positional[0], false); }

int Ctl::SetFileRemoved(const std::string& path, bool removed) {
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
  if (args.Has("--expires") && (!ParseLocalTime(args.Option("--expires"), &expires) || expires <= 0)) {
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

int Ctl::ShareList(const Args&) {
  std::vector<SharingLink> links;
  int rc = ListSharingLinks(*store_, &links);
  if (rc != kOk) return FromService(rc, "");
  for (const SharingLink& link : links) {
    Item item;
    std::string label = FindItemByLink(*store_, link.permanent_link, &item) == kOk ? ItemLabel(item) : "?";
    out_ << link.id << "\t" << label << "\t" << link.permanent_link << "\t" << RoleName(link.role) << "\t"
         << (link.expires == 0 ? std::string("never") : FormatLocalTime(link.expires)) << "\t"
         << (link.password_hash.empty() ? "-" : "password") << "\n";
  }
  return kExitOk;
}

int Ctl::ShareRevoke(const Args& args) {
  const std::string& id = args.positional[0];
  return FromService(RevokeSharingLink(*store_, id), id);
}

int Ctl::SharePassword(const Args& args) {
  const std::string& id = args.positional[0];
  if (args.Has("--none") && args.Has("--password")) return Usage("give --password or --none, not both");
  const bool fromInput = !args.Has("--none") && !args.Has("--password");
  const std::string password = fromInput ? ReadLine() : args.Option("--password");
  if (!args.Has("--none") && password.empty()) {
    return Fail(kExitBadValue, "an empty password; give --none for a link without one");
  }
  return FromService(SetSharingLinkPassword(*store_, id, password), id);
}

// One line per request: item, requester, time, message.
int Ctl::RequestsList(const Args&) {
  std::vector<AccessRequest> requests;
  int rc = ListAccessRequests(*store_, &requests);
  if (rc != kOk) return FromService(rc, "");
  for (const AccessRequest& request : requests) {
    Item item;
    std::string label = FindItemById(*store_, request.item_id, &item) == kOk ? ItemLabel(item) : "?";
    out_ << label << "\t" << request.requester << "\t" << FormatLocalTime(request.at) << "\t" << request.message
         << "\n";
  }
  return kExitOk;
}

int Ctl::RequestsGrant(const Args& args) { return AnswerRequest(args, true); }

int Ctl::RequestsDeny(const Args& args) { return AnswerRequest(args, false); }

// Granting makes the requester a member with the role of the item's link.
int Ctl::AnswerRequest(const Args& args, bool grant) {
  const std::string& path = args.positional[0];
  const std::string& requester = args.positional[1];
  Item item;
  int rc = ResolveItem(path, &item);
  if (rc != kOk) return FromService(rc, path);
  rc = grant ? GrantAccessRequest(*store_, item, requester) : RemoveAccessRequest(*store_, item, requester);
  return FromService(rc, "request of " + requester + " on " + path);
}

int Ctl::Url(const Args& args) {
  std::string base = args.positional[0];
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
