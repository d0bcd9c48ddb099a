// All databases of the process: who is open, and who takes over whom.
#ifndef SDK_DB_DB_REGISTRY_H
#define SDK_DB_DB_REGISTRY_H

namespace sim {

// Closes and frees every database that is still open. When the codec is destroyed and when the
// program ends; console thread.
void finish_open_databases();

}  // namespace sim

#endif  // SDK_DB_DB_REGISTRY_H
