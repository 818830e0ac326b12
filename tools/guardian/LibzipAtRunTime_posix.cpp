// libzip's functions, by its own names, for a program that isn't linked to it: each is looked up in the
// library that the machine has. Packages of one build then run beside Debian 12's libzip.so.4 and everybody's
// libzip.so.5, which is that library under its upstream name: what is called here is the same in both.

#include <dlfcn.h>
#include <zip.h>

namespace {

void *library()
{
    static void *const loaded = [] {
        void *const usual = dlopen("libzip.so.5", RTLD_NOW | RTLD_LOCAL);
        return usual ? usual : dlopen("libzip.so.4", RTLD_NOW | RTLD_LOCAL);
    }();
    return loaded;
}

/// The real function of this name, of the type of `declared`; null without a library. Every archive comes
/// from zip_open, so only that one and the error's functions have to ask.
template <typename Function>
Function *real(const char *name, Function *)
{
    return library() ? reinterpret_cast<Function *>(dlsym(library(), name)) : nullptr;
}

} // namespace

zip_t *zip_open(const char *path, int flags, int *code)
{
    if (const auto function = real("zip_open", &zip_open))
        return function(path, flags, code);
    *code = ZIP_ER_OPNOTSUPP;
    return nullptr;
}

void zip_discard(zip_t *archive)
{
    real("zip_discard", &zip_discard)(archive);
}

void zip_error_init_with_code(zip_error_t *error, int code)
{
    if (const auto function = real("zip_error_init_with_code", &zip_error_init_with_code))
        function(error, code);
}

const char *zip_error_strerror(zip_error_t *error)
{
    const auto function = real("zip_error_strerror", &zip_error_strerror);
    return function ? function(error) : "libzip isn't installed, without which none can be read";
}

void zip_error_fini(zip_error_t *error)
{
    if (const auto function = real("zip_error_fini", &zip_error_fini))
        function(error);
}

const char *zip_strerror(zip_t *archive)
{
    return real("zip_strerror", &zip_strerror)(archive);
}

const char *zip_file_strerror(zip_file_t *file)
{
    return real("zip_file_strerror", &zip_file_strerror)(file);
}

zip_int64_t zip_get_num_entries(zip_t *archive, zip_flags_t flags)
{
    return real("zip_get_num_entries", &zip_get_num_entries)(archive, flags);
}

void zip_stat_init(zip_stat_t *status)
{
    real("zip_stat_init", &zip_stat_init)(status);
}

int zip_stat_index(zip_t *archive, zip_uint64_t index, zip_flags_t flags, zip_stat_t *status)
{
    return real("zip_stat_index", &zip_stat_index)(archive, index, flags, status);
}

int zip_file_get_external_attributes(zip_t *archive, zip_uint64_t index, zip_flags_t flags,
                                     zip_uint8_t *system, zip_uint32_t *attributes)
{
    return real("zip_file_get_external_attributes", &zip_file_get_external_attributes)(archive, index, flags,
                                                                                       system, attributes);
}

zip_file_t *zip_fopen_index(zip_t *archive, zip_uint64_t index, zip_flags_t flags)
{
    return real("zip_fopen_index", &zip_fopen_index)(archive, index, flags);
}

zip_int64_t zip_fread(zip_file_t *file, void *buffer, zip_uint64_t size)
{
    return real("zip_fread", &zip_fread)(file, buffer, size);
}

int zip_fclose(zip_file_t *file)
{
    return real("zip_fclose", &zip_fclose)(file);
}
