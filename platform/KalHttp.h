// Downloading a "http://" name to a local file.
#ifndef KAL_HTTP_H
#define KAL_HTTP_H

// 0 when the whole body of a successful response is in `localPath`; negative otherwise
// (HTTP error status, refused connection, time-out, body cut short), and then no partial
// download is left behind (a file that was already at `localPath` is kept).
int KalHttpDownload(const char* url, const char* localPath);

#endif
