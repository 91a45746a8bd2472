#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// Opens the classifier table `table` of the bridge `bridge`. Returns a descriptor for the requests
/// of acl_ioctl.h, to be closed with `close`, or a negative value with `errno` set. The objects of
/// a table outlive the descriptors through which they were made.
int br_open(const char* bridge, const char* table);

#ifdef __cplusplus
}
#endif
