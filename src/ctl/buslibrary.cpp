// SPDX-License-Identifier: Apache-2.0
#include "ctl/buslibrary.h"

#include <dlfcn.h>

BusLibrary::BusLibrary()
    : library(dlopen("libdbus-1.so.3", RTLD_NOW | RTLD_LOCAL))
    , isWhole(library != nullptr)
{
    find("dbus_connection_open_private", connect);
    find("dbus_connection_get_is_authenticated", isAuthenticated);
    find("dbus_connection_close", close);
    find("dbus_connection_unref", forget);
    find("dbus_connection_set_max_received_size", setMaxReceivedSize);
    find("dbus_connection_get_unix_fd", descriptor);
    find("dbus_connection_send", send);
    find("dbus_connection_send_with_reply_and_block", sendAndWait);
    find("dbus_connection_read_write", readWrite);
    find("dbus_connection_pop_message", pop);
    find("dbus_message_new_method_call", newCall);
    find("dbus_message_new_signal", newSignal);
    find("dbus_message_unref", forgetMessage);
    find("dbus_message_set_auto_start", setAutoStart);
    find("dbus_message_is_signal", isSignal);
    find("dbus_message_get_path", path);
    find("dbus_message_get_sender", sender);
    find("dbus_message_get_signature", signature);
    find("dbus_message_iter_init", beginReading);
    find("dbus_message_iter_get_arg_type", type);
    find("dbus_message_iter_get_element_type", elementType);
    find("dbus_message_iter_get_basic", read);
    find("dbus_message_iter_get_fixed_array", readFixedArray);
    find("dbus_message_iter_recurse", enter);
    find("dbus_message_iter_next", next);
    find("dbus_message_iter_get_signature", signatureOf);
    find("dbus_message_iter_init_append", beginWriting);
    find("dbus_message_iter_open_container", open);
    find("dbus_message_iter_close_container", closeContainer);
    find("dbus_message_iter_append_basic", append);
    find("dbus_error_free", freeError);
    find("dbus_free", release);
}

template <typename Function>
void BusLibrary::find(const char *name, Function *&function)
{
    if (isWhole) {
        function = reinterpret_cast<Function *>(dlsym(library, name));
        isWhole = function != nullptr;
    }
}

const BusLibrary *BusLibrary::get()
{
    static const BusLibrary library;
    return library.isWhole ? &library : nullptr;
}
