"""Design of the prototype filters of the QMF and modulated filter banks."""
