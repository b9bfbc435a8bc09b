#include "platform/linux/LibsecretSecretStore.h"

#include <libsecret/secret.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

namespace zivora::platform {

namespace {

const SecretSchema* schema() {
  static const SecretSchema kSchema = {"com.zivora.secret",
                                       SECRET_SCHEMA_NONE,
                                       {{"application", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                        {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                        {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                        {"accessGroup", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                        {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                                       0,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr};
  return &kSchema;
}

struct GObjectDeleter {
  void operator()(void* object) const { g_object_unref(object); }
};
struct HashTableDeleter {
  void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
struct ErrorDeleter {
  void operator()(GError* error) const { g_error_free(error); }
};
struct ValueDeleter {
  void operator()(SecretValue* value) const { secret_value_unref(value); }
};

using ServicePtr = std::unique_ptr<SecretService, GObjectDeleter>;
using CollectionPtr = std::unique_ptr<SecretCollection, GObjectDeleter>;
using AttributesPtr = std::unique_ptr<GHashTable, HashTableDeleter>;
using ErrorPtr = std::unique_ptr<GError, ErrorDeleter>;
using ValuePtr = std::unique_ptr<SecretValue, ValueDeleter>;

// The hash table borrows the key's strings: the key outlives every call.
AttributesPtr attributesFor(const SecretItemKey& key) {
  AttributesPtr table(g_hash_table_new(g_str_hash, g_str_equal));
  g_hash_table_insert(table.get(), const_cast<char*>("application"),
                      const_cast<char*>(key.application.c_str()));
  g_hash_table_insert(table.get(), const_cast<char*>("service"),
                      const_cast<char*>(key.service.c_str()));
  g_hash_table_insert(table.get(), const_cast<char*>("account"),
                      const_cast<char*>(key.account.c_str()));
  g_hash_table_insert(table.get(), const_cast<char*>("accessGroup"),
                      const_cast<char*>(key.accessGroup.c_str()));
  return table;
}

int codeFor(const GError* error) {
  if (error && error->domain == SECRET_ERROR && error->code == SECRET_ERROR_IS_LOCKED)
    return kSecretInteractionNotAllowed;
  return kSecretNotAvailable;
}

bool sessionBusConfigured() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address)
    return true;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  std::error_code error;
  return runtime && *runtime &&
         std::filesystem::exists(std::filesystem::path(runtime) / "bus", error);
}

using BusPtr = std::unique_ptr<GDBusConnection, GObjectDeleter>;

// The shared session bus connection, which libsecret uses too. By default
// GLib ends the process when that bus goes away; a library must not take
// its host down with it.
BusPtr sessionBus() {
  GError* raw = nullptr;
  BusPtr bus(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &raw));
  ErrorPtr error(raw);
  if (bus) g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
  return bus;
}

bool secretsNameOwned() {
  auto bus = sessionBus();
  if (!bus) return false;
  GError* raw = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "NameHasOwner", g_variant_new("(s)", "org.freedesktop.secrets"), G_VARIANT_TYPE("(b)"),
      G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &raw);
  ErrorPtr callError(raw);
  if (!reply) return false;
  gboolean owned = FALSE;
  g_variant_get(reply, "(b)", &owned);
  g_variant_unref(reply);
  return owned;
}

// The service and the state of its default collection: kSecretSuccess when
// it can be used without a prompt.
int openDefaultCollection(ServicePtr& service) {
  if (!sessionBus()) return kSecretNotAvailable;
  GError* raw = nullptr;
  service.reset(secret_service_get_sync(SECRET_SERVICE_NONE, nullptr, &raw));
  ErrorPtr error(raw);
  if (!service) return codeFor(error.get());
  raw = nullptr;
  CollectionPtr collection(secret_collection_for_alias_sync(
      service.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, nullptr, &raw));
  ErrorPtr aliasError(raw);
  if (!collection) return codeFor(aliasError.get());
  if (secret_collection_get_locked(collection.get())) return kSecretInteractionNotAllowed;
  return kSecretSuccess;
}

int lookup(SecretService* service, const SecretItemKey& key, std::string* data) {
  auto attributes = attributesFor(key);
  GError* raw = nullptr;
  ValuePtr value(secret_service_lookup_sync(service, schema(), attributes.get(), nullptr, &raw));
  ErrorPtr error(raw);
  if (error) return codeFor(error.get());
  if (!value) return kSecretItemNotFound;
  if (data) {
    gsize length = 0;
    const gchar* bytes = secret_value_get(value.get(), &length);
    data->assign(bytes, length);
  }
  return kSecretSuccess;
}

int store(SecretService* service, const SecretItemKey& key, const std::string& data) {
  auto attributes = attributesFor(key);
  ValuePtr value(secret_value_new(data.data(), static_cast<gssize>(data.size()), "text/plain"));
  std::string label = key.application + " " + key.service + " " + key.account;
  GError* raw = nullptr;
  gboolean stored =
      secret_service_store_sync(service, schema(), attributes.get(), SECRET_COLLECTION_DEFAULT,
                                label.c_str(), value.get(), nullptr, &raw);
  ErrorPtr error(raw);
  return stored ? kSecretSuccess : codeFor(error.get());
}

// Runs `body` with an open service whose default collection is unlocked.
template <class Body>
int withService(Body&& body) noexcept {
  try {
    ServicePtr service;
    if (int code = openDefaultCollection(service); code != kSecretSuccess) return code;
    return body(service.get());
  } catch (...) {
    return kSecretNotAvailable;
  }
}

}  // namespace

int LibsecretSecretStore::find(const SecretItemKey& key, std::string& data) noexcept {
  return withService([&](SecretService* service) { return lookup(service, key, &data); });
}

int LibsecretSecretStore::add(const SecretItemKey& key, const std::string& data) noexcept {
  return withService([&](SecretService* service) {
    int code = lookup(service, key, nullptr);
    if (code == kSecretSuccess) return kSecretDuplicateItem;
    if (code != kSecretItemNotFound) return code;
    return store(service, key, data);
  });
}

int LibsecretSecretStore::update(const SecretItemKey& key, const std::string& data) noexcept {
  return withService([&](SecretService* service) {
    int code = lookup(service, key, nullptr);
    if (code != kSecretSuccess) return code;
    return store(service, key, data);
  });
}

int LibsecretSecretStore::remove(const SecretItemKey& key) noexcept {
  return withService([&](SecretService* service) {
    auto attributes = attributesFor(key);
    GError* raw = nullptr;
    gboolean cleared =
        secret_service_clear_sync(service, schema(), attributes.get(), nullptr, &raw);
    ErrorPtr error(raw);
    if (error) return codeFor(error.get());
    return cleared ? kSecretSuccess : kSecretItemNotFound;
  });
}

bool LibsecretSecretStore::available() noexcept {
  try {
    if (!sessionBusConfigured() || !secretsNameOwned()) return false;
    ServicePtr service;
    return openDefaultCollection(service) == kSecretSuccess;
  } catch (...) {
    return false;
  }
}

}  // namespace zivora::platform
