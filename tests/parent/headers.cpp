// The public headers are there, and none of the inner ones.

#include <adapter/MiddlewareIpc.h>
#include <client/ControlChannel.h>

#if __has_include(<ipc/IpcServer.h>) || __has_include(<client/Fields.h>) || \
    __has_include(<tests/parent/headers.cpp>)
#error "the parent can include what is not public"
#endif

int main() { return 0; }
