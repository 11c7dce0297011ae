// libxml2's header with what version 2.12 changed for the service: a handler takes a const error.
#pragma once

#define xmlStructuredErrorFunc xmlEarlierStructuredErrorFunc
#define xmlSetStructuredErrorFunc xmlEarlierSetStructuredErrorFunc
#include_next <libxml/xmlerror.h>
#undef xmlStructuredErrorFunc
#undef xmlSetStructuredErrorFunc

extern "C" {
typedef void (*xmlStructuredErrorFunc)(void* context, const xmlError* error);
void xmlSetStructuredErrorFunc(void* context, xmlStructuredErrorFunc handler);
__attribute__((deprecated)) xmlStructuredErrorFunc* __xmlNewerStructuredError(void);
}
#undef xmlStructuredError
#define xmlStructuredError (*__xmlNewerStructuredError())
