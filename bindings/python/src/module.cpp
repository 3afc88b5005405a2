#include "common.h"

PYBIND11_MODULE(_core, module) {
    module.doc() = "The functions of libkorlastream and libkorladownmixer on numpy arrays; used through the package korla.";
    module.attr("__version__") = KORLA_VERSION;
    korla_python::add_stream(module);
    korla_python::add_transforms(module);
    korla_python::add_banks(module);
    korla_python::add_filters(module);
}
