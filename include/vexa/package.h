/* The interface of packages: what a library in C needs to give pages functions, variables and
 * payment methods. C99 and valid C++; this file is all that a package needs.
 *
 * A package is a shared library with one VEXA_PACKAGE, a commerce library one with VEXA_COMMERCE
 * and its four functions:
 *
 *   static int shout(vexa_context *context, void *data, const vexa_text *arguments, size_t count) {
 *     ...
 *     return vexa_set_result(context, text);
 *   }
 *   static int init(vexa_context *context) {
 *     return vexa_add_function(context, "shout", "text", shout, NULL);
 *   }
 *   VEXA_PACKAGE("words", "1.0", init, NULL)
 *
 * Memory: nothing changes hands. What the program hands out (arguments, values, the memory of
 * vexa_allocate) lives until the function that got the context returns; behind each text stands a
 * NUL that is not counted. What a library hands in is copied at once.
 *
 * A context belongs to the call that got it, and to its thread: used anywhere else, every function
 * gives VEXA_ERROR (null, empty). */

#ifndef VEXA_PACKAGE_H_
#define VEXA_PACKAGE_H_

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#define VEXA_ABI 1u

#if defined(__GNUC__)
#define VEXA_VISIBLE_ __attribute__((visibility("default")))
#else
#define VEXA_VISIBLE_
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What functions return. VEXA_MORE is for vexa_commerce_loop alone. */
enum { VEXA_OK = 0, VEXA_MORE = 1, VEXA_ERROR = -1 };
/* The scopes of vexa_each_variable. */
enum { VEXA_LOCAL = 0, VEXA_GLOBAL = 1, VEXA_SYSTEM = 2 };
/* The roots of vexa_resolve_path. */
enum { VEXA_DATA_PATH = 0, VEXA_SCRIPT_PATH = 1, VEXA_TEMPORARY_PATH = 2 };

/* Any bytes, NUL included. */
typedef struct vexa_text {
  const char *bytes;
  size_t length;
} vexa_text;

typedef struct vexa_field {
  vexa_text name;
  vexa_text value;
} vexa_field;

typedef struct vexa_context vexa_context;

/* A function of a package, called with as many arguments as its parameters name. Returns VEXA_OK;
 * anything else stops the page with the text of vexa_set_error. `data` is that of
 * vexa_add_function. */
typedef int (*vexa_function)(vexa_context *, void *data, const vexa_text *arguments, size_t count);
/* Sees one variable. Anything but VEXA_OK ends the visit. */
typedef int (*vexa_visitor)(void *data, const vexa_field *variable);

/* What the program offers. Later versions only add members at the end. Use the functions below. */
typedef struct vexa_interface {
  uint32_t abi;        /* VEXA_ABI of the program */
  uint32_t size;       /* of this structure in the program */
  const char *version; /* of the program */
  int (*add_function)(vexa_context *, const char *name, const char *parameters, vexa_function,
                      void *data);
  int (*add_variable)(vexa_context *, const char *name, vexa_text value);
  int (*set_result)(vexa_context *, vexa_text);
  int (*set_error)(vexa_context *, vexa_text);
  vexa_text (*error)(vexa_context *);
  int (*get_variable)(vexa_context *, const char *name, vexa_text *value);
  int (*set_variable)(vexa_context *, const char *name, vexa_text value);
  int (*each_variable)(vexa_context *, int scope, vexa_visitor, void *data);
  int (*evaluate)(vexa_context *, vexa_text expression, vexa_text *value);
  int (*write)(vexa_context *, vexa_text);
  int (*write_encoded)(vexa_context *, vexa_text);
  int (*resolve_path)(vexa_context *, int root, vexa_text name, vexa_text *path);
  int64_t (*time_remaining)(vexa_context *);
  int (*log)(vexa_context *, vexa_text);
  void *(*allocate)(vexa_context *, size_t size);
} vexa_interface;

struct vexa_context {
  const vexa_interface *calls;
};

/* What a package is. `code` is that of the site's configuration. */
typedef struct vexa_package {
  uint32_t abi;  /* VEXA_ABI when it was built */
  uint32_t size; /* sizeof(vexa_package) */
  const char *code;
  const char *version;
  int (*init)(vexa_context *);     /* called once, before its first function is */
  void (*cleanup)(vexa_context *); /* called at the end of the request, or null */
} vexa_package;

extern VEXA_VISIBLE_ const vexa_package vexa_package_entry;

/* Makes the library a package. Written without a semicolon. */
#define VEXA_PACKAGE(code, version, init, cleanup)                                               \
  const vexa_package vexa_package_entry = {VEXA_ABI, sizeof(vexa_package), code, version, init, \
                                           cleanup};

/* What a VxCOMMERCE block asks for. */
typedef struct vexa_commerce {
  vexa_text method; /* METHOD of the configuration */
  vexa_text metamethod;
  vexa_text action; /* ACTION of the page, empty without */
  const vexa_field *fields;
  size_t count;
} vexa_commerce;

extern VEXA_VISIBLE_ const uint32_t vexa_commerce_abi;

/* Makes the library a commerce library. Written without a semicolon. */
#define VEXA_COMMERCE const uint32_t vexa_commerce_abi = VEXA_ABI;

/* Begins a block. `*state` is null at first and is handed to the other three. Anything but VEXA_OK
 * is a failure. */
VEXA_VISIBLE_ int vexa_commerce_init(vexa_context *, const vexa_commerce *request, void **state);
/* Called before each pass: VEXA_MORE runs the body, VEXA_OK ends the block, anything else is a
 * failure. */
VEXA_VISIBLE_ int vexa_commerce_loop(vexa_context *, void *state);
/* Called once for every init, however the block was left. */
VEXA_VISIBLE_ void vexa_commerce_cleanup(vexa_context *, void *state);
/* Why it failed; null for no reason. The text lives until cleanup. */
VEXA_VISIBLE_ const char *vexa_commerce_error(vexa_context *, void *state);

/* --- Texts --- */

static inline vexa_text vexa_bytes(const void *bytes, size_t length) {
  vexa_text text;
#ifdef __cplusplus
  text.bytes = static_cast<const char *>(bytes);
#else
  text.bytes = (const char *)bytes;
#endif
  text.length = length;
  return text;
}

static inline vexa_text vexa_string(const char *string) {
  return vexa_bytes(string, string == NULL ? 0 : strlen(string));
}

/* --- What a library may ask. All give VEXA_OK or VEXA_ERROR unless they say otherwise. --- */

/* Adds a function that pages can call. In init only. Names are letters, digits and "_", begin with
 * a letter and have at most 64 bytes; `parameters` is a list of such names separated by ", ", at
 * most 32, or "". */
static inline int vexa_add_function(vexa_context *context, const char *name,
                                    const char *parameters, vexa_function function, void *data) {
  return context->calls->add_function(context, name, parameters, function, data);
}
/* Sets a system variable that belongs to the library. Pages may assign to it. */
static inline int vexa_add_variable(vexa_context *context, const char *name, vexa_text value) {
  return context->calls->add_variable(context, name, value);
}
/* Sets the value of the running function. */
static inline int vexa_set_result(vexa_context *context, vexa_text result) {
  return context->calls->set_result(context, result);
}
/* Sets the reason for the failure of the running function or init. */
static inline int vexa_set_error(vexa_context *context, vexa_text message) {
  return context->calls->set_error(context, message);
}
/* Why the last call through this context failed. */
static inline vexa_text vexa_error(vexa_context *context) {
  return context->calls->error(context);
}
/* The value of a variable, named as a script names it; empty for an unknown one. */
static inline int vexa_get_variable(vexa_context *context, const char *name, vexa_text *value) {
  return context->calls->get_variable(context, name, value);
}
/* Assigns as a script does. */
static inline int vexa_set_variable(vexa_context *context, const char *name, vexa_text value) {
  return context->calls->set_variable(context, name, value);
}
/* Shows a copy of a scope in the order of its names. Returns what ended the visit. */
static inline int vexa_each_variable(vexa_context *context, int scope, vexa_visitor visitor,
                                     void *data) {
  return context->calls->each_variable(context, scope, visitor, data);
}
/* The value of an expression in the running script. After VEXA_ERROR the page is to stop: return. */
static inline int vexa_evaluate(vexa_context *context, vexa_text expression, vexa_text *value) {
  return context->calls->evaluate(context, expression, value);
}
/* Writes to the page; vexa_write_encoded with "<", ">", "&" and quotes as entities. */
static inline int vexa_write(vexa_context *context, vexa_text text) {
  return context->calls->write(context, text);
}
static inline int vexa_write_encoded(vexa_context *context, vexa_text text) {
  return context->calls->write_encoded(context, text);
}
/* The path of a file that a page named. Files named by pages are opened by such paths only. */
static inline int vexa_resolve_path(vexa_context *context, int root, vexa_text name,
                                    vexa_text *path) {
  return context->calls->resolve_path(context, root, name, path);
}
/* Seconds to the page's time limit, 0 when it has passed, -1 without one. */
static inline int64_t vexa_time_remaining(vexa_context *context) {
  return context->calls->time_remaining(context);
}
/* Writes an event PACKAGE to the activity log. */
static inline int vexa_log(vexa_context *context, vexa_text text) {
  return context->calls->log(context, text);
}
/* Memory that is given back when the running call returns; null when there is none. */
static inline void *vexa_allocate(vexa_context *context, size_t size) {
  return context->calls->allocate(context, size);
}

#ifdef __cplusplus
}
#endif

#endif /* VEXA_PACKAGE_H_ */
