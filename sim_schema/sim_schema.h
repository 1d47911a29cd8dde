// The simulation database schema and the database root.
#ifndef DDB_SIM_SCHEMA_SIM_SCHEMA_H_
#define DDB_SIM_SCHEMA_SIM_SCHEMA_H_

#include "sim_schema/msfD_DiscreteModel.h"
#include "sim_schema/msfD_Mesh.h"
#include "sim_schema/msfD_Root.h"
#include "sim_schema/msfD_Sim.h"

#endif  // DDB_SIM_SCHEMA_SIM_SCHEMA_H_
