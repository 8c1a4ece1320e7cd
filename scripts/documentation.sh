# The HTML of the public headers, and the code blocks of the documentation.

check_documentation() {
    mkdir -p build/docs
    doxygen docs/Doxyfile
}

docs() {
    logged 'documentation' check_documentation
    build release
    ctest --preset release -j "$jobs" --no-tests=error -R '^docs\.'
    echo "documentation: $PWD/build/docs/html/index.html"
}
