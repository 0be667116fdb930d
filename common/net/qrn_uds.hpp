// Unix-domain stream sockets, with a limit.
#pragma once

namespace zep {

// As QRN_ConnectUDSSocket. Waits that many seconds for a listener whose queue is full, then ETIMEDOUT; 0:
// for ever.
int connect_unix(const char* path, int limit_s);

} // namespace zep
