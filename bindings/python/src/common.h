// What the parts of the extension module share: arrays as numpy has them, and objects that a second thread or a missing
// constructor cannot break.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <atomic>
#include <complex>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace korla_python {

namespace py = pybind11;

using Complex = std::complex<float>;
// Any array of numbers; one that is contiguous and of this type already is taken as it is, another is converted.
using Floats = py::array_t<float, py::array::c_style | py::array::forcecast>;
using Complexes = py::array_t<Complex, py::array::c_style | py::array::forcecast>;

inline const float* data(const Complexes& x) { return reinterpret_cast<const float*>(x.data()); }
inline float* data(Complexes& x) { return reinterpret_cast<float*>(x.mutable_data()); }

// The base of every class that Python makes objects of.
class Object {
protected:
    std::atomic<bool> in_use_{false};
};

// Python's lock is released while the library works, so that two threads may meet in one object. The second is refused.
class InUse {
public:
    explicit InUse(std::atomic<bool>& flag) : flag_(flag) {
        if (flag_.exchange(true))
            throw std::runtime_error("the object is in use by another thread");
    }
    ~InUse() { flag_ = false; }
    InUse(const InUse&) = delete;
    InUse& operator=(const InUse&) = delete;

private:
    std::atomic<bool>& flag_;
};

inline void expect_dimensions(const py::array& x, py::ssize_t dimensions, const char* what) {
    if (x.ndim() != dimensions)
        throw py::value_error(std::string(what) + ": " + std::to_string(dimensions) + " dimensions are wanted, " +
                              std::to_string(x.ndim()) + " given");
}
inline void expect_multiple(py::ssize_t n, py::ssize_t unit, const char* what) {
    if (n % unit != 0)
        throw py::value_error(std::string(what) + ": a multiple of " + std::to_string(unit) + " is wanted, " +
                              std::to_string(n) + " given");
}

void add_stream(py::module_& module);
void add_transforms(py::module_& module);
void add_banks(py::module_& module);
void add_filters(py::module_& module);

} // namespace korla_python

// Python can make an object whose constructor never ran: K.__new__(K), or a class of one's own that forgets the call. For
// such a one pybind11 hands out memory as it comes; here it is refused.
template <class T>
class pybind11::detail::type_caster<T, std::enable_if_t<std::is_base_of_v<korla_python::Object, T>>>
    : public type_caster_base<T> {
public:
    bool load(handle source, bool convert) {
        if (source && isinstance<T>(source) &&
            !reinterpret_cast<instance*>(source.ptr())->get_value_and_holder(get_type_info(typeid(T))).holder_constructed())
            throw type_error("__init__ of the object's class was not called");
        return type_caster_base<T>::load(source, convert);
    }
};
