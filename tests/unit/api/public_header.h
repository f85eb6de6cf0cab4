/* What public_header.c offers to the tests, which are C++. */
#pragma once

#include "SonviaPCAudioDll.h"

#ifdef __cplusplus
extern "C" {
#endif

size_t sizeOfRecordInC(void);
size_t sizeOfBoolResultInC(void);
void fillRecordInC(AudioServiceParam* param);
int callEveryFunctionInC(void);
int errorsSeenInC(void);

#ifdef __cplusplus
}
#endif
