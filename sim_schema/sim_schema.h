// The simulation database schema and the database root.
#ifndef DDB_SIM_SCHEMA_SIM_SCHEMA_H_
#define DDB_SIM_SCHEMA_SIM_SCHEMA_H_

#endif  // DDB_SIM_SCHEMA_SIM_SCHEMA_H_
