#pragma once

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <string_view>

// Small owners for what libxcb hands out with malloc, shared by the X11 watchers of this layer.
namespace kestrix::xcb {

struct FreeDeleter
{
    void operator()(void *pointer) const { std::free(pointer); }
};
template<typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

struct ConnectionDeleter
{
    void operator()(xcb_connection_t *connection) const { xcb_disconnect(connection); }
};
using Connection = std::unique_ptr<xcb_connection_t, ConnectionDeleter>;

// Opens a connection of our own; null (never a half-open connection) when the server refuses.
inline Connection connect(const char *display, int *screenNumber)
{
    Connection connection(xcb_connect(display, screenNumber));
    if (xcb_connection_has_error(connection.get()) != 0)
        return nullptr;
    return connection;
}

inline xcb_screen_t *screenOf(xcb_connection_t *connection, int screenNumber)
{
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; it.rem > 0; ++i, xcb_screen_next(&it)) {
        if (i == screenNumber)
            return it.data;
    }
    return nullptr;
}

// XCB_ATOM_NONE when the atom does not exist yet and onlyIfExists is set, or the server failed.
inline xcb_atom_t atom(xcb_connection_t *connection, std::string_view name, bool onlyIfExists)
{
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, uint8_t(onlyIfExists), uint16_t(name.size()), name.data()), nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

} // namespace kestrix::xcb
