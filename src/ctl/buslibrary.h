// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <array>

// Those of the library, which nobody looks into.
struct DBusConnection;
struct DBusMessage;

//! As the library lays it out.
struct DBusError {
    const char *name; //!< null for none
    const char *message;
    unsigned flags;
    void *padding;
};

//! Room for what the library keeps in one: 72 bytes, 56 where pointers have four.
struct DBusMessageIter {
    std::array<void *, 16> own;
};

/*!
 * The bus's own library, libdbus, with the functions that the tool takes of it. It is loaded
 * by the first command that speaks to the bus, and stays: the others neither need it nor
 * wait for it. Its interface has been the same since 2006. bool stands in it as a 32-bit
 * number.
 */
class BusLibrary
{
public:
    //! Null where the library is missing.
    [[nodiscard]] static const BusLibrary *get();

    using Bool = quint32;

    DBusConnection *(*connect)(const char *address, DBusError *error) = nullptr;
    Bool (*isAuthenticated)(DBusConnection *) = nullptr;
    void (*close)(DBusConnection *) = nullptr;
    void (*forget)(DBusConnection *) = nullptr;
    void (*setMaxReceivedSize)(DBusConnection *, long bytes) = nullptr;
    Bool (*descriptor)(DBusConnection *, int *out) = nullptr;
    Bool (*send)(DBusConnection *, DBusMessage *, quint32 *serial) = nullptr;
    DBusMessage *(*sendAndWait)(DBusConnection *, DBusMessage *, int milliseconds, DBusError *error)
        = nullptr;
    Bool (*readWrite)(DBusConnection *, int milliseconds) = nullptr;
    DBusMessage *(*pop)(DBusConnection *) = nullptr;

    DBusMessage *(*newCall)(const char *to, const char *path, const char *interface,
                            const char *member)
        = nullptr;
    DBusMessage *(*newSignal)(const char *path, const char *interface, const char *member)
        = nullptr;
    void (*forgetMessage)(DBusMessage *) = nullptr;
    void (*setAutoStart)(DBusMessage *, Bool starts) = nullptr;
    Bool (*isSignal)(DBusMessage *, const char *interface, const char *member) = nullptr;
    const char *(*path)(DBusMessage *) = nullptr;
    const char *(*sender)(DBusMessage *) = nullptr;
    const char *(*signature)(DBusMessage *) = nullptr;

    Bool (*beginReading)(DBusMessage *, DBusMessageIter *) = nullptr;
    int (*type)(DBusMessageIter *) = nullptr;
    int (*elementType)(DBusMessageIter *) = nullptr;
    void (*read)(DBusMessageIter *, void *out) = nullptr;
    void (*readFixedArray)(DBusMessageIter *, void *out, int *count) = nullptr;
    void (*enter)(DBusMessageIter *, DBusMessageIter *inner) = nullptr;
    Bool (*next)(DBusMessageIter *) = nullptr;
    char *(*signatureOf)(DBusMessageIter *) = nullptr; //!< to be given to release()

    void (*beginWriting)(DBusMessage *, DBusMessageIter *) = nullptr;
    Bool (*open)(DBusMessageIter *, int type, const char *content, DBusMessageIter *inner)
        = nullptr;
    Bool (*closeContainer)(DBusMessageIter *, DBusMessageIter *inner) = nullptr;
    Bool (*append)(DBusMessageIter *, int type, const void *value) = nullptr;

    void (*freeError)(DBusError *) = nullptr;
    void (*release)(void *) = nullptr;

private:
    BusLibrary();
    template <typename Function>
    void find(const char *name, Function *&function);

    void *library;
    bool isWhole;
};
