"""Makes a simulation database from Python: the demo's database (examples/demo.cpp).

    python3 make_database.py FILE

A sim with a discrete model and a mesh, whose collections, named sets and
int32 fields live in the database's service, and four FE systems: plain,
generic, modal with two events, substructure with damping. Every assignment
and append is committed when it returns.
"""
import sys

import numpy as np

import ddb_pdm as ddb


def main(file):
    with ddb.Root() as root:
        sim = root.create_sim(file, alias="demo")
        svc = sim.service
        nodes, elements = svc.create_collection(8), svc.create_collection(3)
        dof_types, dofs = svc.create_collection(3), svc.create_collection(24)
        loads, modes = svc.create_collection(2), svc.create_collection(6)
        frames, cases = svc.create_collection(10), svc.create_collection(2)
        all_nodes = nodes.create_ordered_set(np.arange(8))
        all_elements = elements.create_ordered_set(np.arange(3))
        labels = all_nodes.create_int32(np.arange(101, 109))  # user labels 101 ...
        masks = all_nodes.create_int32(np.full(8, 7))  # ux, uy, uz at every node

        vectors = svc.create_collection(3)
        sim.discrete_model = ddb.DiscreteModel.new(vectors, nodes)
        model = sim.discrete_model
        model.local_node_sets = {"corners": nodes.create_ordered_set([0, 3, 4, 7])}
        model.mesh = ddb.Mesh.new(nodes, elements)
        mesh = model.mesh
        mesh.node_sets = {"fixed": nodes.create_ordered_set([0, 1, 2, 3]),
                          "loaded": nodes.create_ordered_set([7, 6])}
        mesh.element_sets = {"all": all_elements}
        mesh.node_fields = {"temperature": all_nodes.create_int32(np.arange(20, 60, 5))}
        mesh.element_fields = {"material": all_elements.create_int32([1, 1, 2])}

        plain = mesh.systems.append(ddb.FESystem.new("structure", labels, masks))
        plain.distributions = {1: masks}
        plain.user_distributions = {"labels": labels}
        mesh.systems.append(ddb.GenericSystem.new("generic", labels, masks, dofs, loads))

        # A derived system is filled before it is appended, as in C++.
        modal = ddb.ModalSystem.new("modal", labels, masks, dofs, modes)
        modal.property_evaluation = 20.0
        modal.structural_modes = modes.create_ordered_set([0, 1, 2, 3])
        modal.residual_modes = modes.create_ordered_set([4, 5])
        modal.distributions = {1: masks}
        modal.user_distributions = {"labels": labels}
        modal.events.append(ddb.ModalEvent.new("eigen", 1, frames, cases))
        response = modal.events.append(ddb.ModalEvent.new("response", 2, frames, cases))
        response.active_modes = modes.create_ordered_set([0, 1])
        mesh.systems.append(modal)

        sub = ddb.SubstructureSystem.new("superelement", labels, masks, dof_types, dofs, modes)
        sub.retained_nodes = nodes.create_ordered_set([0, 7])
        sub.damping = ddb.SubDamp.new()  # at most one damping record
        damping = sub.damping
        damping.alpha, damping.beta, damping.structural = 0.1, 0.02, 0.05
        mesh.systems.append(sub)
    print(f"made {file}")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: make_database.py FILE")
    main(sys.argv[1])
