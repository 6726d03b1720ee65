// Downloading a "http://" name to a local file.
#ifndef KAL_HTTP_H
#define KAL_HTTP_H

// 0 when the whole body of a successful response is in `localPath`; negative otherwise
// (HTTP error status, refused connection, time-out, body cut short), and then no partial
// download is left behind (a file that was already at `localPath` is kept). A download gives
// up after 10 s without a connection, 20 s below 1 byte a second, or 300 s in all; the
// environment variable KAL_HTTP_TIMEOUT (whole seconds, read at each call) sets the last bound
// and lowers the other two to it.
int KalHttpDownload(const char* url, const char* localPath);

#endif
