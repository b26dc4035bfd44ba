#include "platform/IpcRuntime.h"

#include "platform/Log.h"

#include <boost/asio/executor_work_guard.hpp>

#include <cstdlib>
#include <pthread.h>
#include <thread>

namespace platform::ipc {

namespace {

    struct IoThread {
        boost::asio::io_context context;
        boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work { context.get_executor() };
        std::thread thread { [this] {
            pthread_setname_np(pthread_self(), "korbanhold-ipc");
            run();
        } };

        // Runs the handlers until the context stops. A handler that raises (memory that ran out where no
        // connection could be blamed) is logged and the thread goes on with the next one: every socket of the
        // process depends on it.
        void run()
        {
            for (;;) {
                try {
                    context.run();
                    return;
                } catch (const std::exception& error) {
                    log("IPC: a task of the I/O thread failed and was dropped: %@", error.what());
                }
            }
        }

        void stop()
        {
            context.stop();
            if (thread.get_id() == std::this_thread::get_id())
                thread.detach(); // exit() called from a handler of this thread
            else if (thread.joinable())
                thread.join();
        }
    };

    IoThread& ioThread()
    {
        static IoThread* const instance = [] {
            auto* created = new IoThread;
            std::atexit([] { ioThread().stop(); });
            return created;
        }();
        return *instance;
    }

}

boost::asio::io_context& ioContext() { return ioThread().context; }

}
