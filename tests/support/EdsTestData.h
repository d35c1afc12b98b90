// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// Writing calendars and events into a running Evolution Data Server (see EdsTestSession), the way a calendar
// application does it: through libecal, on the calling thread. Failures throw std::runtime_error.

#include <libecal/libecal.h>
#include <memory>
#include <stdexcept>
#include <string>

namespace eds_test {

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
/// One owned GObject reference.
template <class T>
using Ref = std::unique_ptr<T, GObjectUnref>;

/// Throws with the message of `error` (and frees it) when `ok` is false.
inline void check(bool ok, GError* error, const std::string& what)
{
    if (ok) {
        return;
    }
    const std::string message = error != nullptr ? error->message : "unknown error";
    g_clear_error(&error);
    throw std::runtime_error(what + ": " + message);
}

inline Ref<ESourceRegistry> connectRegistry()
{
    GError* error = nullptr;
    Ref<ESourceRegistry> registry(e_source_registry_new_sync(nullptr, &error));
    check(registry != nullptr, error, "connecting to the source registry");
    return registry;
}

/// Adds a calendar source (parent "local-stub" and backend "local" make a calendar "On This Computer").
inline Ref<ESource> addCalendar(ESourceRegistry* registry, const char* uid, const char* title,
                                const char* color = nullptr, const char* parent = "local-stub",
                                const char* backend = "local")
{
    GError* error = nullptr;
    Ref<ESource> source(e_source_new_with_uid(uid, nullptr, &error));
    check(source != nullptr, error, "making a calendar source");
    e_source_set_parent(source.get(), parent);
    e_source_set_display_name(source.get(), title);
    auto* calendar = e_source_get_extension(source.get(), E_SOURCE_EXTENSION_CALENDAR);
    e_source_backend_set_backend_name(E_SOURCE_BACKEND(calendar), backend);
    if (color != nullptr) {
        e_source_selectable_set_color(E_SOURCE_SELECTABLE(calendar), color);
    }
    check(e_source_registry_commit_source_sync(registry, source.get(), nullptr, &error), error,
          std::string("adding calendar ") + title);
    return source;
}

/// Adds a mail identity: calendars take the user's addresses from these.
inline Ref<ESource> addMailIdentity(ESourceRegistry* registry, const char* uid, const char* address)
{
    GError* error = nullptr;
    Ref<ESource> source(e_source_new_with_uid(uid, nullptr, &error));
    check(source != nullptr, error, "making a mail identity");
    e_source_set_display_name(source.get(), address);
    auto* identity = E_SOURCE_MAIL_IDENTITY(e_source_get_extension(source.get(), E_SOURCE_EXTENSION_MAIL_IDENTITY));
    e_source_mail_identity_set_address(identity, address);
    check(e_source_registry_commit_source_sync(registry, source.get(), nullptr, &error), error,
          "adding the mail identity");
    return source;
}

/// A client of the calendar `uid`; it does not wait for the backend to report itself online.
inline Ref<ECalClient> connectCalendar(ESourceRegistry* registry, const char* uid)
{
    Ref<ESource> source(e_source_registry_ref_source(registry, uid));
    if (!source) {
        throw std::runtime_error(std::string("no calendar ") + uid);
    }
    GError* error = nullptr;
    EClient* client =
        e_cal_client_connect_sync(source.get(), E_CAL_CLIENT_SOURCE_TYPE_EVENTS, guint32(-1), nullptr, &error);
    check(client != nullptr, error, std::string("opening calendar ") + uid);
    return Ref<ECalClient>(E_CAL_CLIENT(client));
}

/// A component from iCalendar text (lines may end in LF or CRLF).
inline Ref<ICalComponent> component(const std::string& text)
{
    Ref<ICalComponent> parsed(i_cal_component_new_from_string(text.c_str()));
    if (!parsed) {
        throw std::runtime_error("not iCalendar:\n" + text);
    }
    return parsed;
}

inline void createEvent(ECalClient* client, const std::string& vevent)
{
    GError* error = nullptr;
    gchar* uid = nullptr;
    check(e_cal_client_create_object_sync(client, component(vevent).get(), E_CAL_OPERATION_FLAG_NONE, &uid, nullptr,
                                          &error),
          error, "creating an event");
    g_free(uid);
}

/// Changes one instance of a series, as a calendar application does when the user moves only that occurrence.
inline void modifyOccurrence(ECalClient* client, const std::string& vevent)
{
    GError* error = nullptr;
    check(e_cal_client_modify_object_sync(client, component(vevent).get(), E_CAL_OBJ_MOD_THIS,
                                          E_CAL_OPERATION_FLAG_NONE, nullptr, &error),
          error, "changing one occurrence");
}

} // namespace eds_test
