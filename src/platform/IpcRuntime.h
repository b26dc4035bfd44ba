#pragma once

// The I/O thread of the IPC runtime: one io_context, run by one thread for the life of the process, on which the
// sockets of every connection and server are read and written. Work for a socket is posted to it, so each socket's
// state is only ever touched by that one thread. It is never destroyed; it stops at exit, before static objects go.

#include <boost/asio/io_context.hpp>

namespace platform::ipc {

boost::asio::io_context& ioContext();

}
