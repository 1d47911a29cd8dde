// The service context of a database and its identifiers in Python:
// Service, Collection, OrderedSet and Distribution (compared and hashed by
// their own numbers, bulk data as numpy arrays both ways), and the schema
// snapshot.
#include <climits>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "python/ddb_py.h"

namespace ddb_py {
namespace {

// The identifier's own numbers, for equality, hashing and repr.
std::vector<uint64_t> Key(const QELSimCollectionID& id) {
  return {static_cast<uint64_t>(id.ContextNumber()), id.CollectionMinor()};
}
std::vector<uint64_t> Key(const QELSimCSetID& id) {
  return {static_cast<uint64_t>(id.ContextNumber()), id.CollectionMinor(), id.CSetMinor()};
}
std::vector<uint64_t> Key(const QELSimDistributionID& id) {
  return {static_cast<uint64_t>(id.ContextNumber()), id.DistributionMinor()};
}

template <class Id>
py::class_<IdRef<Id>> DefineId(py::module_& m, const char* doc) {
  py::class_<IdRef<Id>> cls(m, HeldName(static_cast<const Id*>(nullptr)), doc);
  RefuseNew(cls);
  return cls
      .def(
          "__eq__", [](const IdRef<Id>& a, const IdRef<Id>& b) { return a.raw() == b.raw(); },
          py::is_operator())
      .def("__hash__",
           [](const IdRef<Id>& self) {
             size_t h = 0;
             for (uint64_t part : Key(self.raw())) h = h * 1000003u ^ std::hash<uint64_t>()(part);
             return h;
           })
      .def("__repr__", [](const IdRef<Id>& self) {
        std::string text = std::string("<ddb_pdm.") + HeldName(static_cast<const Id*>(nullptr));
        for (uint64_t part : Key(self.raw())) text += " " + std::to_string(part);
        return text + ">";
      });
}

}  // namespace

QELSimPersistentDrawerDesc Drawer(const QELSimDistributionID& id) {
  QELSimArray<QELSimPersistentDrawerDesc> drawers(1);
  Messages messages;
  QELSimDistributionRef(id).QueryDrawers(drawers);
  std::string text = messages.Take();
  bool usable = drawers.Size() > 0 && drawers[0].DimensionSets().Size() > 0;
  Settle(text.empty() && !usable ? "a distribution without values" : text, !usable);
  return drawers[0];
}

void BindIdentifiers(py::module_& m) {
  typedef IdRef<QELSimCollectionID> CollectionRef;
  typedef IdRef<QELSimCSetID> SetRef;
  typedef IdRef<QELSimDistributionID> DistributionRef;

  DefineId<QELSimCollectionID>(m, "A collection of the service: members 0 .. size-1.")
      .def_property_readonly("size",
                             [](const CollectionRef& self) {
                               QELSimCollectionRef collection(self.get());
                               return ReadCount([&] { return collection.Size(); });
                             })
      .def(
          "create_ordered_set",
          [](const CollectionRef& self, py::handle members) {
            QELSimCollectionRef collection(self.get());
            auto array = Int32Array(members, "create_ordered_set");
            if (array.size() > INT_MAX)
              throw py::value_error("create_ordered_set: too many members");
            QELSimCSetID set = Read([&] {
              return collection.CreateOrderedCSet(array.data(), static_cast<int>(array.size()));
            });
            return SetRef(set, self.life());
          },
          py::arg("members"), "A new ordered set of distinct members, in the order given.");

  DefineId<QELSimCSetID>(m, "An ordered set of members of one collection.")
      .def_property_readonly("size",
                             [](const SetRef& self) {
                               QELSimCSet set(self.get());
                               return ReadCount([&] { return set.Size(); });
                             })
      .def_property_readonly("collection",
                             [](const SetRef& self) {
                               const QELSimCSetID& id = self.get();
                               return CollectionRef(
                                   QELSimCollectionID(id.ContextNumber(), id.CollectionMinor()),
                                   self.life());
                             })
      .def(
          "members",
          [](const SetRef& self) {
            // Read and checked in one pass, straight into the new array.
            QELSimCSet set(self.get());
            py::array_t<int32_t> out;
            std::exception_ptr failed;  // of the allocation, not the library
            Messages messages;
            bool read = set.ReadMembers([&](int n) -> int* {
              try {
                out = NewInt32Array(n);
                return out.mutable_data();
              } catch (...) {
                failed = std::current_exception();
                return nullptr;
              }
            });
            if (failed) std::rethrow_exception(failed);
            Settle(messages.Take(), !read);
            return out;
          },
          "The members in their order (int32).")
      .def(
          "create_int32",
          [](const SetRef& self, py::handle values) {
            QELSimCSet set(self.get());
            auto array = Int32Array(values, "create_int32");
            int n = ReadCount([&] { return set.Size(); });
            if (array.size() != n) {
              throw Error("create_int32: " + std::to_string(array.size()) +
                          " values for an ordered set of " + std::to_string(n) + " members");
            }
            QELSimDistributionID id =
                Read([&] { return QELSimDistributionRef::CreateInt32(self.get(), array.data()); });
            return DistributionRef(id, self.life());
          },
          py::arg("values"), "A new int32 distribution: one value per member, in the set's order.");

  DefineId<QELSimDistributionID>(m, "Values over the members of an ordered set.")
      .def_property_readonly("ordered_set",
                             [](const DistributionRef& self) {
                               QELSimPersistentDrawerDesc drawer = Drawer(self.get());
                               return SetRef(drawer.DimensionSets()[0], self.life());
                             })
      .def(
          "values",
          [](const DistributionRef& self) {
            const QELSimDistributionID& id = self.get();
            QELSimPersistentDrawerDesc drawer = Drawer(id);
            const int n = drawer.DataSizeItems(0);
            py::array_t<int32_t> out = NewInt32Array(n);
            QELSimTransfer transfer(id);
            Messages messages;
            transfer.SetRead();
            transfer.SetBufferPadding(false);
            transfer.SetDim(0, drawer.DimensionSets()[0]);
            transfer.CheckView();
            transfer.SetBuffer(0, out.mutable_data(), static_cast<size_t>(n) * sizeof(int32_t));
            bool read = transfer.ExecRead();
            transfer.RelinquishBuffers();
            std::string text = messages.Take();
            Settle(text.empty() && !read ? "the values could not be read" : text, !read);
            return out;
          },
          "The values in the order of the ordered set (int32).");

  py::class_<Held<QELSimContextID>> service(
      m, "Service", "The service context of one database: where bulk data lives.");
  RefuseNew(service);
  service
      .def(
          "create_collection",
          [](const Held<QELSimContextID>& self, int size) {
            QELSimContextID context = self.get();
            QELSimCollectionID id =
                Read([&] { return QELSimCollectionRef::Create(context, size); });
            return CollectionRef(id, self.life());
          },
          py::arg("size"), "A new collection of `size` members.")
      .def("__repr__", [](const Held<QELSimContextID>& self) {
        return "<ddb_pdm.Service " + std::to_string(self.get().Number()) + ">";
      });

  py::class_<Held<gbb_SchemaSnapshot>> snapshot(m, "SchemaSnapshot",
                                                "The classes a database knows, by identifier.");
  RefuseNew(snapshot);
  snapshot
      .def("__len__",
           [](const Held<gbb_SchemaSnapshot>& self) { return self.get().Impl()->Count(); })
      .def("__contains__", [](const Held<gbb_SchemaSnapshot>& self, const std::string& id) {
        gbb_SchemaSnapshot snapshot = self.get();
        return !Read([&] { return snapshot.GetClass(gbb_ClassID(id.c_str())); }).IsNull();
      });
}

}  // namespace ddb_py
