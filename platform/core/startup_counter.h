// The reference-counting convention shared by every start-up pair.
//
// `count` is the caller's running tally of components that a call chain
// actually brought up (+1) or took down (-1). Finalising more often than
// initialising is not guarded: the counter goes negative, and the initialise
// that brings it back to 0 does not count. Every pair keeps this behaviour.
#ifndef DDB_PLATFORM_CORE_STARTUP_COUNTER_H_
#define DDB_PLATFORM_CORE_STARTUP_COUNTER_H_

// Returns true when this call brought the component up (counter went 0 -> 1).
inline bool StartupIncrement(int& counter, int& count) {
  int old = counter;
  counter = old + 1;
  if (old != 0) return false;
  count += 1;
  return true;
}

// Returns true when this call took the component down (counter reached 0).
inline bool StartupDecrement(int& counter, int& count) {
  counter -= 1;
  if (counter != 0) return false;
  count -= 1;
  return true;
}

#endif  // DDB_PLATFORM_CORE_STARTUP_COUNTER_H_
