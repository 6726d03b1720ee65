// Downloading a "http://" name to a local file.
#ifndef KAL_HTTP_H
#define KAL_HTTP_H

// 0 when the whole body of a successful response is in `localPath`; negative otherwise
// (HTTP error status, refused connection, time-out, body cut short), and then no file is
// left at `localPath`.
int KalHttpDownload(const char* url, const char* localPath);

#endif
