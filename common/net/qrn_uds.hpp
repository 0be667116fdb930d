// Unix-domain stream sockets, with a limit.
#pragma once

namespace zep {

// As QRN_ConnectUDSSocket. A listener whose queue is full is waited for so many seconds, then ETIMEDOUT; 0:
// for ever.
int connect_unix(const char* path, int limit_s);

} // namespace zep
