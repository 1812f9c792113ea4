// The application's files: configuration file, permissions, event database, key store,
// preferences and the device record. Nothing here writes to them: the database is opened in a
// private copy (SQLite may write beside a database it opens, the -shm file of a WAL database).

#include <plist/plist.h>
#include <pwd.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "checks.hpp"

namespace orvanta::doctor {
namespace {

namespace fs = std::filesystem;

constexpr const char* kConfigurationKeys[] = {"AppId", "Token", "Secret", "EventsToken"};
// The kit reads a configuration file of at most 1 MiB and preferences of at most 16 MiB.
constexpr std::size_t kMaxConfigurationBytes = 1 << 20;
constexpr std::size_t kMaxPreferencesBytes = 16 << 20;
constexpr const char* kDatabaseName = "Orvanta.sqlite";
constexpr const char* kDeviceAccount = "authorizationData.deviceModel";
constexpr const char* kRegistrationAccount = "unifiedPush.registration";
constexpr const char* kUuidAccount = "uuid";
constexpr const char* kLoggingKey = "orvanta.userDefaults.isLoggingEnabled";
constexpr const char* kLastOpenedPushKey = "commonData.lastOpenedPushId";

bool exists(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0;
}

/// The whole file, or why not: missing, unreadable, a folder, larger than `limit`.
std::optional<std::string> readFile(const std::string& path, std::size_t limit, std::string& why) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    why = std::strerror(errno);
    return std::nullopt;
  }
  if (!S_ISREG(info.st_mode)) {
    why = "not a regular file";
    return std::nullopt;
  }
  if (static_cast<std::size_t>(info.st_size) > limit) {
    why = "larger than " + std::to_string(limit) + " bytes";
    return std::nullopt;
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    why = std::strerror(errno);
    return std::nullopt;
  }
  std::string contents((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (contents.size() > limit) {
    why = "larger than " + std::to_string(limit) + " bytes";
    return std::nullopt;
  }
  return contents;
}

std::string userName(uid_t uid) {
  struct passwd entry {};
  struct passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    return found->pw_name;
  }
  return "uid " + std::to_string(uid);
}

std::string octal(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
  std::string text;
  for (const auto& part : parts) {
    text += (text.empty() ? "" : separator) + part;
  }
  return text;
}

/// The kind of a property list value, with its article ("a number", "an array").
const char* plistTypeName(plist_type type) {
  switch (type) {
    case PLIST_BOOLEAN:
      return "a Boolean";
    case PLIST_UINT:
    case PLIST_REAL:
      return "a number";
    case PLIST_ARRAY:
      return "an array";
    case PLIST_DICT:
      return "a dictionary";
    case PLIST_DATE:
      return "a date";
    case PLIST_DATA:
      return "data";
    default:
      return "a value of another type";
  }
}

// --- the event database, in a private copy ---------------------------------------------------

/// A folder of the doctor's own under $TMPDIR (else /tmp), removed with its contents.
class PrivateFolder {
 public:
  PrivateFolder() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = (tmp != nullptr && tmp[0] == '/' ? std::string(tmp) : "/tmp");
    pattern += "/orvanta-doctor-XXXXXX";
    if (::mkdtemp(pattern.data()) != nullptr) {
      path_ = pattern;
    }
  }
  ~PrivateFolder() {
    if (!path_.empty()) {
      std::error_code ignored;
      fs::remove_all(path_, ignored);
    }
  }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

struct FileIdentity {
  bool present = false;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modified = 0;

  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

FileIdentity identityOf(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    return {};
  }
  return {true, info.st_ino, info.st_size,
          static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec};
}

/// Copies the database and its write-ahead log into `folder`, again while the application
/// changed them during the copy (a few times at most). False with the reason when a copy failed.
bool copyDatabase(const std::string& database, const std::string& folder, std::string& why) {
  const std::string log = database + "-wal";
  const std::string copy = folder + "/" + kDatabaseName;
  for (int attempt = 0; attempt < 3; ++attempt) {
    const FileIdentity databaseBefore = identityOf(database);
    const FileIdentity logBefore = identityOf(log);
    std::error_code error;
    fs::copy_file(database, copy, fs::copy_options::overwrite_existing, error);
    if (!error && logBefore.present) {
      fs::copy_file(log, copy + "-wal", fs::copy_options::overwrite_existing, error);
    } else if (!error) {
      fs::remove(copy + "-wal", error);
      error.clear();
    }
    if (error) {
      why = error.message();
      return false;
    }
    if (identityOf(database) == databaseBefore && identityOf(log) == logBefore) {
      break;
    }
  }
  return true;
}

using Row = std::vector<std::optional<std::string>>;

/// Every row of `sql` as text; none, with SQLite's message, when the statement fails.
std::optional<std::vector<Row>> query(sqlite3* db, const char* sql, std::string& why) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) {
    why = sqlite3_errmsg(db);
    return std::nullopt;
  }
  std::vector<Row> rows;
  int step = SQLITE_ROW;
  while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
    Row row;
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
      const auto* text = sqlite3_column_text(statement, column);
      row.push_back(text == nullptr
                        ? std::nullopt
                        : std::optional<std::string>(reinterpret_cast<const char*>(text)));
    }
    rows.push_back(std::move(row));
  }
  if (step != SQLITE_DONE) {
    why = sqlite3_errmsg(db);
    sqlite3_finalize(statement);
    return std::nullopt;
  }
  sqlite3_finalize(statement);
  return rows;
}

/// The first column of the first row as a number; 0 when there is none.
double firstNumber(const std::vector<Row>& rows) {
  return rows.empty() || rows[0].empty() || !rows[0][0] ? 0
                                                        : std::strtod(rows[0][0]->c_str(), nullptr);
}

// --- the key store -----------------------------------------------------------------------

/// Whether a stored device record has what the kit needs to decode it.
bool isDeviceRecord(const nlohmann::json& record) {
  if (!record.is_object()) {
    return false;
  }
  for (const char* key : {"user_id", "type", "app_id"}) {
    if (!record.contains(key) || !record[key].is_string()) {
      return false;
    }
  }
  for (const char* key : {"orvanta", "custom"}) {
    if (!record.contains(key) || !record[key].is_object()) {
      return false;
    }
  }
  return record.contains("mobile_agent") && record["mobile_agent"].is_array() &&
         (!record.contains("registration_id") || record["registration_id"].is_string());
}

std::optional<StoredRegistration> registrationFrom(const nlohmann::json& record) {
  if (!record.is_object() || !record.contains("token") || !record["token"].is_string()) {
    return std::nullopt;
  }
  auto text = [&record](const char* key) {
    return record.contains(key) && record[key].is_string() ? record[key].get<std::string>()
                                                           : std::string();
  };
  return StoredRegistration{text("token"), text("distributor"), text("endpoint"),
                            text("authSecret")};
}

}  // namespace

Verdict checkConfiguration(Context& context) {
  const std::string expected = context.settings.bundleDirectory + "/OrvantaConfig.plist";
  const std::string describe =
      "set AppId, Token, Secret and EventsToken as <string> entries, the service's credentials "
      "for this application (README, Quick start)";
  const auto found = context.platform->bundle->pathForResource("OrvantaConfig", "plist");
  if (!found) {
    return Verdict::fail(
        "no " + expected + ": every request goes out without credentials and is refused",
        "put the application's OrvantaConfig.plist in " + context.settings.bundleDirectory +
            ", or pass the folder the application gives as its bundle (--bundle)",
        {{"path", expected}});
  }
  const std::string& path = *found;
  nlohmann::ordered_json details{{"path", path}};
  std::string why;
  const auto contents = readFile(path, kMaxConfigurationBytes, why);
  if (!contents) {
    return Verdict::fail(
        path + " cannot be read (" + why + ")",
        "make it a readable file of the application's user (chmod u+r " + path + ")", details);
  }
  plist_t root = nullptr;
  if (!contents->empty()) {
    plist_from_memory(contents->data(), static_cast<std::uint32_t>(contents->size()), &root);
  }
  std::unique_ptr<void, void (*)(void*)> owned(
      root, [](void* node) { plist_free(static_cast<plist_t>(node)); });
  if (root == nullptr) {
    return Verdict::fail(path + " is not a property list (XML or binary)", describe, details);
  }
  if (plist_get_node_type(root) != PLIST_DICT) {
    return Verdict::fail(
        path + " holds " + plistTypeName(plist_get_node_type(root)) + ", not a dictionary",
        describe, details);
  }
  std::vector<std::string> problems;
  for (const char* key : kConfigurationKeys) {
    plist_t item = plist_dict_get_item(root, key);
    if (item == nullptr) {
      problems.push_back(std::string(key) + " is missing");
    } else if (plist_get_node_type(item) != PLIST_STRING) {
      problems.push_back(std::string(key) + " is " + plistTypeName(plist_get_node_type(item)) +
                         ", not a string");
    } else {
      std::uint64_t length = 0;
      const char* text = plist_get_string_ptr(item, &length);
      if (text == nullptr || length == 0) {
        problems.push_back(std::string(key) + " is empty");
      } else if (std::string_view(key) == "AppId") {
        context.configuredAppId.assign(text, static_cast<std::size_t>(length));
      }
    }
  }
  details["appId"] = context.configuredAppId;
  details["problems"] = problems;
  if (!problems.empty()) {
    return Verdict::fail(path + ": " + joined(problems, ", ") +
                             " (the kit sends empty credentials, which the service refuses)",
                         describe, details);
  }
  return Verdict::pass(
      path + ": AppId \"" + context.configuredAppId + "\", Token, Secret and EventsToken are set",
      details);
}

Verdict checkFiles(Context& context) {
  const Settings& settings = context.settings;
  if (settings.dataDirectory.empty()) {
    return Verdict::fail("no data folder: neither XDG_DATA_HOME nor HOME is set",
                         "pass the folder the application uses (--data)");
  }
  struct stat info {};
  if (::stat(settings.dataDirectory.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    return Verdict::fail("no data folder at " + settings.dataDirectory +
                             ": the application has not stored anything there",
                         "run the application once, or pass the folder it uses (--data)",
                         {{"path", settings.dataDirectory}});
  }
  // Private: only the user may enter or read (events and the key store hold the push token).
  // Shared: others may read but not write (the preferences).
  struct Entry {
    std::string path;
    bool isPrivate;
  };
  std::vector<Entry> entries{{settings.dataDirectory, true}};
  for (const char* suffix : {"", "-wal", "-shm"}) {
    entries.push_back({settings.dataDirectory + "/" + kDatabaseName + suffix, true});
  }
  entries.push_back({settings.keystoreDirectory, true});
  std::error_code error;
  for (const auto& item : fs::directory_iterator(settings.keystoreDirectory, error)) {
    entries.push_back({item.path().string(), true});
  }
  if (!settings.preferencesFile.empty()) {
    entries.push_back({settings.preferencesFile, false});
  }

  const uid_t user = ::getuid();
  std::vector<std::string> problems;
  std::vector<std::string> foreign;  // to chown
  std::vector<std::string> open;     // to chmod
  nlohmann::ordered_json checked = nlohmann::ordered_json::array();
  for (const Entry& entry : entries) {
    if (::stat(entry.path.c_str(), &info) != 0) {
      continue;
    }
    checked.push_back(
        {{"path", entry.path}, {"mode", octal(info.st_mode)}, {"owner", userName(info.st_uid)}});
    if (info.st_uid != user) {
      problems.push_back(entry.path + " belongs to " + userName(info.st_uid) + ", not to " +
                         userName(user) + " (the application cannot change it)");
      foreign.push_back(entry.path);
    }
    const mode_t others = entry.isPrivate ? 077 : 022;
    if ((info.st_mode & others) != 0) {
      problems.push_back(entry.path + " is " +
                         (entry.isPrivate ? "open to group or others" : "writable by others") +
                         " (mode " + octal(info.st_mode) + ")");
      open.push_back(entry.path);
    }
  }
  nlohmann::ordered_json details{{"checked", checked}, {"problems", problems}};
  if (problems.empty()) {
    return Verdict::pass(std::to_string(checked.size()) + " folders and files under " +
                             settings.dataDirectory + " and the preferences belong to " +
                             userName(user) + " and are private",
                         details);
  }
  std::string fix;
  if (!foreign.empty()) {
    fix = "sudo chown " + userName(user) + " " + joined(foreign, " ");
  }
  if (!open.empty()) {
    fix += (fix.empty() ? "" : " && ") + std::string("chmod go-rwx ") + joined(open, " ");
  }
  std::string reason = problems.front();
  if (problems.size() > 1) {
    reason += " (and " + std::to_string(problems.size() - 1) + " more)";
  }
  return Verdict::fail(reason, fix, details);
}

Verdict checkDatabase(Context& context) {
  const Settings& settings = context.settings;
  const std::string path = settings.dataDirectory + "/" + kDatabaseName;
  nlohmann::ordered_json details{{"path", path}};
  // With its log and shared-memory files: a log left beside a new database would be replayed.
  const std::string asideFolder = settings.dataDirectory + ".damaged";
  const std::string moveAside =
      "with the application stopped, move it aside with its -wal and "
      "-shm files (mkdir -m 700 " +
      asideFolder + " && mv " + path + "* " + asideFolder +
      "/); it starts a new one, without the events of this one";
  if (settings.dataDirectory.empty() || !exists(path)) {
    return Verdict::fail(
        "no event database at " + path + ": the application has not run with this data folder",
        "run the application once, or pass the folder it uses (--data)", details);
  }
  PrivateFolder folder;
  std::string why;
  if (folder.path().empty()) {
    return Verdict::fail("no private temporary folder to inspect a copy in",
                         "point TMPDIR at a writable folder");
  }
  if (!copyDatabase(path, folder.path(), why)) {
    return Verdict::fail(path + " cannot be read (" + why + ")",
                         "make it readable by the application's user (see the permissions line)",
                         details);
  }
  sqlite3* db = nullptr;
  const std::string copy = folder.path() + "/" + kDatabaseName;
  const int opened = sqlite3_open_v2(copy.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> owned(db, &sqlite3_close);
  if (opened != SQLITE_OK) {
    return Verdict::fail(path + " does not open: " + sqlite3_errstr(opened), moveAside, details);
  }
  const auto checked = query(db, "PRAGMA quick_check", why);
  if (!checked || checked->empty() || checked->front().front() != "ok") {
    const std::string first =
        checked && !checked->empty() ? checked->front().front().value_or("?") : why;
    details["quickCheck"] = first;
    return Verdict::fail(path + " is damaged (" + first + ")", moveAside, details);
  }
  details["quickCheck"] = "ok";
  const auto tables = query(
      db, "SELECT name FROM sqlite_master WHERE type = 'table' AND name LIKE 'orvantaevent%'", why);
  bool hasEvents = false;
  bool hasAside = false;
  for (const auto& row : tables.value_or(std::vector<Row>{})) {
    hasEvents = hasEvents || row[0] == "orvantaevent";
    hasAside = hasAside || row[0] == "orvantaevent_aside";
  }
  if (!hasEvents) {
    return Verdict::fail(path + " has no event table: it is not the kit's event database",
                         moveAside, details);
  }
  const auto waiting = query(db, "SELECT count(*), min(createdAt) FROM \"orvantaevent\"", why);
  if (!waiting) {
    return Verdict::fail(path + " cannot be read (" + why + ")", moveAside, details);
  }
  const auto count = static_cast<std::int64_t>(firstNumber(*waiting));
  details["waiting"] = count;
  if (hasAside) {
    const auto aside = query(db, "SELECT count(*) FROM \"orvantaevent_aside\"", why);
    details["setAside"] = aside ? static_cast<std::int64_t>(firstNumber(*aside)) : 0;
  }
  if (count == 0) {
    return Verdict::pass(path + " passes its quick check; no events waiting", details);
  }
  const double now =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  const double age = now - std::strtod(waiting->front()[1].value_or("0").c_str(), nullptr);
  details["oldestAgeSeconds"] = static_cast<std::int64_t>(age);
  const std::string backlog = std::to_string(count) + (count == 1 ? " event" : " events") +
                              " waiting, the oldest " + describeDuration(age) + " old";
  if (age > static_cast<double>(settings.maxBacklogAge.count())) {
    return Verdict::fail(
        path + ": " + backlog + ": they are not being delivered",
        "start the application with the service reachable (it posts waiting events at each "
        "trackEvent and when it goes to the background); if they stay, see the API service line "
        "and the EventsToken",
        details);
  }
  return Verdict::pass(path + " passes its quick check; " + backlog, details);
}

Verdict checkKeystore(Context& context) {
  const std::string& folder = context.settings.keystoreDirectory;
  nlohmann::ordered_json details{{"path", folder}};
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    return Verdict::fail(
        "no key store at " + folder + ": the application has not stored its identity there",
        "run the application once, or pass the folder it uses (--keystore, "
        "default <data>/keystore)",
        details);
  }
  std::vector<std::string> damaged;
  nlohmann::ordered_json items = nlohmann::ordered_json::object();
  for (const char* account : {kUuidAccount, kDeviceAccount, kRegistrationAccount}) {
    // Items are files named after their account ("uuid.item"); one that is there but does not
    // read back (cut short, a wrong checksum) is damaged.
    const std::string file = folder + "/" + account + ".item";
    const auto bytes = context.platform->secureStore->read(account);
    if (!bytes) {
      const bool present = exists(file);
      items[account] = present ? "damaged" : "missing";
      if (present) {
        damaged.push_back(file);
      }
      continue;
    }
    bool decodes = true;
    if (account == std::string_view(kUuidAccount)) {
      decodes = !bytes->empty();
    } else {
      auto record = nlohmann::json::parse(*bytes, nullptr, false);
      if (account == std::string_view(kDeviceAccount)) {
        decodes = isDeviceRecord(record);
        if (decodes) {
          context.deviceRecord = std::move(record);
        }
      } else {
        context.registration = registrationFrom(record);
        decodes = context.registration.has_value();
      }
    }
    items[account] = decodes ? "ok" : "undecodable";
    if (!decodes) {
      damaged.push_back(file);
    }
  }
  details["items"] = items;
  if (!damaged.empty()) {
    return Verdict::fail(
        joined(damaged, ", ") + (damaged.size() == 1 ? " does" : " do") +
            " not decode: the kit reads such an item as missing",
        "remove it (rm " + joined(damaged, " ") +
            "): the application makes a new one at its next start (a new device identity or "
            "push registration)",
        details);
  }
  std::vector<std::string> stored;
  for (const auto& [account, state] : items.items()) {
    if (state == "ok") {
      stored.push_back(account);
    }
  }
  return Verdict::pass(folder + ": " +
                           (stored.empty() ? std::string("no items yet")
                                           : "items " + joined(stored, ", ") + " decode"),
                       details);
}

Verdict checkPreferences(Context& context) {
  const std::string& path = context.settings.preferencesFile;
  if (path.empty()) {
    return Verdict::fail("no preferences file: neither XDG_CONFIG_HOME nor HOME is set",
                         "pass the file the application uses (--preferences)");
  }
  nlohmann::ordered_json details{{"path", path}};
  if (!exists(path)) {
    details["logging"] = false;
    return Verdict::pass("no " + path + " yet: logging is off, no push opened", details);
  }
  std::string why;
  const auto contents = readFile(path, kMaxPreferencesBytes, why);
  if (!contents) {
    return Verdict::fail(path + " cannot be read (" + why + ")",
                         "make it readable by the application's user (see the permissions line)",
                         details);
  }
  const auto document = nlohmann::json::parse(*contents, nullptr, false);
  if (document.is_discarded() || !document.is_object()) {
    return Verdict::fail(path +
                             " is not a JSON object: the kit starts with empty preferences "
                             "and replaces it at its next change",
                         "remove it (rm " + path +
                             "); the switches it held (logging) go back to "
                             "their defaults",
                         details);
  }
  const bool logging = document.contains(kLoggingKey) && document[kLoggingKey].is_boolean() &&
                       document[kLoggingKey].get<bool>();
  details["logging"] = logging;
  std::string reason = path + " decodes; logging is " + (logging ? "on" : "off");
  if (document.contains(kLastOpenedPushKey) && document[kLastOpenedPushKey].is_string()) {
    details["lastOpenedPushId"] = document[kLastOpenedPushKey];
    reason += "; last push opened: " + document[kLastOpenedPushKey].get<std::string>();
  }
  return Verdict::pass(reason, details);
}

Verdict checkDevice(Context& context) {
  verdictOf(context, &checkConfiguration);
  verdictOf(context, &checkKeystore);
  if (!context.deviceRecord) {
    return Verdict::fail(
        "no device record in the key store: this installation never registered, so it has no "
        "push token and trackEvent drops every event",
        "call Orvanta::push().registerForPushNotifications(...) at start-up, with "
        "LinuxPlatformOptions::applicationId set (README, Pushes on a Linux desktop)");
  }
  const nlohmann::json& record = *context.deviceRecord;
  const std::string device = record["user_id"].get<std::string>();
  const std::string appId = record["app_id"].get<std::string>();
  const std::string token =
      record.contains("registration_id") ? record["registration_id"].get<std::string>() : "";
  nlohmann::ordered_json details{
      {"device", device}, {"appId", appId}, {"hasToken", !token.empty()}};
  if (token.empty()) {
    return Verdict::fail("device " + device +
                             " has no push token: trackEvent drops every event and no push can "
                             "reach it",
                         "let registration for remote notifications succeed: see the distributor "
                         "and registration lines",
                         details);
  }
  if (!context.configuredAppId.empty() && appId != context.configuredAppId) {
    return Verdict::fail("the device record was made for AppId \"" + appId +
                             "\" but the configuration file says \"" + context.configuredAppId +
                             "\": the service refuses its registration",
                         "put AppId \"" + appId + "\" back in OrvantaConfig.plist, or remove " +
                             context.settings.keystoreDirectory + "/" + kDeviceAccount +
                             ".item so that the application registers afresh",
                         details);
  }
  return Verdict::pass("device " + device + " of AppId \"" + appId + "\" has a push token",
                       details);
}

}  // namespace orvanta::doctor
