"""Opens a database read-only, walks its mesh and prints its node fields.

    python3 walk_database.py FILE

Objects are read from the file when first touched; array elements come
back as their stored class; bulk data comes back as numpy arrays.
"""
import sys

import ddb_pdm as ddb


def main(file):
    with ddb.open(file) as sim:
        mesh = sim.discrete_model.mesh
        print(f"mesh: {mesh.nodes.size} nodes, {mesh.elements.size} elements")
        for name, nodes in mesh.node_sets.items():
            print(f"  node set {name}: {nodes.members().tolist()}")
        for s in mesh.systems:
            labels = s.nodal_labels.values()
            print(f"  {type(s).__name__} {s.system_name!r}: labels {labels.min()}..{labels.max()}")
            if isinstance(s, ddb.ModalSystem):
                for event in s.events:
                    print(f"    event {event.event_name!r} type {event.event_type_id}")
        for name, field in mesh.node_fields.items():
            values, nodes = field.values(), field.ordered_set.members()
            print(f"  node field {name}: mean {values.mean():g}, max {values.max()} at node {nodes[values.argmax()]}")
            for node, value in zip(nodes, values):
                print(f"    {node:3d} {value:6d} " + "#" * int(value // 5))


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: walk_database.py FILE")
    main(sys.argv[1])
