#pragma once

// Exception-report library: raises warnings and exceptions to the system's exception-report
// service, which records them with the reporting process's state.

#ifdef __cplusplus
extern "C" {
#endif

/// Raises a warning report for module. path names an extra file to attach (may be null);
/// flags select what the service collects; msg is the report's text, taken as is (it is not
/// a format). Returns 0 when the report was accepted.
int kfe_system_warning(const char* module, const char* path, unsigned int flags,
                       const char* msg);

/// Raises an exception report; arguments and result as for kfe_system_warning.
int kfe_system_exception(const char* module, const char* path, unsigned int flags,
                         const char* msg);

#ifdef __cplusplus
}
#endif
