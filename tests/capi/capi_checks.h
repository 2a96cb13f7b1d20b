/* The C scenarios the harness runs (capi_checks.c). */
#ifndef VMIO_TESTS_CAPI_CHECKS_H
#define VMIO_TESTS_CAPI_CHECKS_H

#ifdef __cplusplus
extern "C" {
#endif

/* device: an Axis camera with 4 inputs then 2 outputs, all off, named "Input N". */
const char* CheckCameraThroughC(const char* device);
/* wrong_credentials: a camera that refuses them; closed_port: nothing listens there;
 * secret: the password in wrong_credentials, which the trace must never show. */
const char* CheckFailureReasonsThroughC(const char* wrong_credentials, const char* closed_port, const char* secret);
/* With two simulated loggers, the first at first_path. */
const char* CheckEnumeratorThroughC(const char* first_path);
const char* CheckLibraryFunctionsThroughC(void);
/* count devices of classes[i] at devices[i], live[i] 0 for a dead one; devices[camera] is a
 * live camera with 4 inputs, then outputs. The camera's first output is left switched on. */
const char* CheckEngineThroughC(int count, const char* const* classes, const char* const* devices, const int* live,
                                int camera);

#ifdef __cplusplus
}
#endif

#endif
