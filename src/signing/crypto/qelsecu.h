#pragma once

namespace tolven {

// The certificate-helper table: a second, smaller set of functions of the same library.

enum class QelSecuState : int { kUnloaded = 0, kAllLoaded = 1, kSomeMissing = 2 };

// Opens the library (names as for DkvSupInitEx) and resolves the table; QelSecu_Exit closes it. False when
// the library cannot be opened or a table is loaded already.
[[nodiscard]] bool QelSecu_Init(const char* libraryName);
// Resolves the table from a library somebody else has opened and will close; replaces a table of the same
// kind.
void QelSecu_ExernalInit(void* library);
// Empties the table; does nothing when there is none.
void QelSecu_Exit();
// True iff a library is behind the table.
bool QelSecu_IsDlHandle();
// True iff the table was resolved from this library.
bool QelSecu_UsesLibrary(const void* library);

QelSecuState QelSecu_State();
// True iff the function of that name was found; false for names the table does not have.
bool QelSecu_HasFunction(const char* name);
// Passes the trace level to the library, when it can be told.
void QelSecu_SetTraceLevel(int level);

}  // namespace tolven
