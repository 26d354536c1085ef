// What the library exports. It is built with hidden symbol visibility: only
// the classes and functions of its public headers, marked KVC_API, are
// visible to a host; everything else stays inside the shared object.
#ifndef KVC_DB_API_H_
#define KVC_DB_API_H_

#define KVC_API __attribute__((visibility("default")))

#endif  // KVC_DB_API_H_
