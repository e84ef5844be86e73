/*
 * Plug-ins: shared libraries that a program loads while it runs.
 *
 *     CDynamicModule module("/usr/lib/sensors/memory.so");
 *     if (module.load(&settings) != 0) return 1;                      (the log says why)
 *     Sensors* sensors = static_cast<Sensors*>(module.getClassFactory());
 *     if (sensors != NULL) print(sensors->first());
 *     (the end of `module` ends the plug-in: what came out of it must be gone by then)
 *
 * A plug-in exports up to three functions of C. The program that loads it decides what the two
 * pointers are; the types of both belong into a header that the program and its plug-ins share.
 *
 *     void dynamic_module_init(void* arg);     is called by load(), with its argument; may be missing
 *     void dynamic_module_done(void);          is called at the end; may be missing
 *     void* getClassFactory(void);             is called by getClassFactory(), each time
 *
 * The first two may return a number or a pointer, which is ignored. None of them may throw, or end
 * the object that calls it. In a library without a function of that name, one counts that it is
 * linked with (dlsym(3)); a name with the address 0 is none.
 *
 * A program that loads a plug-in runs its code, with all that the program may do: the library's
 * file and its folder must be nobody's to write whom the program does not trust.
 *
 * Calls block as long as it takes to read the library, and what it is linked with, and to run the
 * plug-in's functions. All messages go to syslog; each is given below. errno is of no meaning
 * after any of the calls.
 *
 * Threads and signals: nothing is locked. An object is for one thread at a time; several threads
 * may use several objects, also those on one library, whose functions must be able to stand that. A
 * request to cancel a thread waits for the end of its call. Nothing here is for signal handlers.
 */
#ifndef RKUTILS_DYNAMIC_MODULE_H
#define RKUTILS_DYNAMIC_MODULE_H

#include <rkutils/export.h>

#include <string>

/*
 * One use of one library. Its destructor is the only virtual member.
 *
 * Several objects may use the same library: that is in memory once, but its functions are called
 * for each of them.
 */
class RK_API CDynamicModule {
 public:
  /*
   * `libPath` is the library's path, or its name alone: a text without "/" is looked for in
   * $LD_LIBRARY_PATH, in /lib and in /usr/lib, see dlopen(3). Nothing is opened or looked at yet.
   * Throws std::bad_alloc without memory for a copy.
   */
  explicit CDynamicModule(const std::string& libPath);

  /*
   * Ends the plug-in, where load() has succeeded: calls its function dynamic_module_done() if there
   * is one, and closes the library. All that came out of it is invalid then: objects, functions,
   * texts.
   *
   * Where no other use is left, the GNU C library takes the library out of memory, after its
   * destructors, for which the object is a loaded one still. musl does not, and calls them at the
   * end of the program: variables keep their values, and are found like that when the library is
   * loaded again.
   *
   * Logs, LOG_DEBUG:
   *     Calling done function for shared library "PATH"      where there is one
   *     closing shared library "PATH"
   * and, LOG_WARNING, when it cannot be closed, as when somebody else has closed it already:
   *     dlclose() failed, rc=%i, dlerror=%s, errno=%s (lib=PATH)
   *         with the result; the loader's reason, or "<null>"; and what errno says
   * Without a loaded library it does and logs nothing.
   */
  virtual ~CDynamicModule();

  CDynamicModule(const CDynamicModule&) = delete;
  CDynamicModule& operator=(const CDynamicModule&) = delete;

  /*
   * Opens the library, with its constructors, and calls its function dynamic_module_init() with
   * `arg` if there is one. `arg` may be anything that the two have agreed upon, NULL too.
   *
   * A function that is missing is missed only when it is called, which ends the process; missing
   * variables are a failure here (RTLD_LAZY). From now on what the library exports may be used by
   * those that are loaded later (RTLD_GLOBAL): plug-ins that are loaded together need different
   * names, but for the three above.
   *
   * Returns 0 when the library has been opened; there is no way to unload it but the object's end.
   * Logs, LOG_DEBUG:
   *     opened shared library "PATH"
   *     calling init function for shared library "PATH"      where there is one
   *
   * Returns -1, and does nothing else,
   *   - when it has been opened before, also from within the init function; logs, LOG_DEBUG:
   *         Dynamic module PATH already loaded
   *   - when it cannot be opened, also for a path that holds a NUL; it may be tried again. Logs,
   *     LOG_ERR, with what errno says, which knows less than lastError() and for some failures
   *     nothing ("Success", with musl "No error information"):
   *         Unable to open shared library "PATH" - error=%s
   *
   * Kept for compatibility: for an empty path the C libraries differ. With musl this fails. With
   * the GNU C library the program itself is opened, and functions count that anything has which is
   * loaded: those of another plug-in are called with this one's argument, and at this one's end.
   */
  int load(void* arg);

  /*
   * What the plug-in's function getClassFactory() returns, which may be NULL. It belongs to the
   * plug-in, and ends with it at the latest. Logs, LOG_DEBUG:
   *     Retrieving classfactory from shared library "PATH"
   *
   * Returns NULL also, and logs, LOG_ERR,
   *     Library not loaded                                   before load() has succeeded
   *     Symbol "getClassFactory" not found in shared library "PATH"
   */
  void* getClassFactory() const;

  /*
   * Why this thread's last search for a library or a name in one has failed, by whatever object or
   * other use of the loader: what dlerror(3) returns, a text of the C library's that is valid until
   * the thread's next use of the loader. NULL when nothing has failed since the last call. Right
   * after a load() that could not open the library it is the reason, but for a path with a NUL;
   * after one that has returned 0 it may tell that there is no dynamic_module_init().
   */
  const char* lastError() const;

  /* The path or name as it was given. Valid as long as the object. */
  const std::string& getLibPath() const;

 private:
  void* handle_; /* NULL while nothing is loaded */
  std::string lib_path_;
};

#endif
