#include "platform/StorageWriter.h"

#include "base/StrCat.h"

#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-stdio.h>
#include <gsf/gsf-utils.h>

#include <memory>
#include <mutex>

namespace lumenar::platform {

using base::Error;
using base::ErrorCode;
using base::StrCat;

namespace {

struct GObjectUnref
{
    void operator()(void* object) const { g_object_unref(object); }
};
using GsfOutputPtr = std::unique_ptr<GsfOutput, GObjectUnref>;
using GsfOutfilePtr = std::unique_ptr<GsfOutfile, GObjectUnref>;

struct GErrorFree
{
    void operator()(GError* error) const { g_error_free(error); }
};

} // namespace

base::Status WriteCompoundFile(const std::string& path, std::span<const StorageStream> streams)
{
    static std::once_flag once;
    std::call_once(once, [] { gsf_init(); });
    GError* rawError = nullptr;
    GsfOutputPtr sink(gsf_output_stdio_new(path.c_str(), &rawError));
    std::unique_ptr<GError, GErrorFree> error(rawError);
    if (!sink)
        return Error{ErrorCode::Io, StrCat("cannot write ", path, ": ", error ? error->message : "unknown reason")};
    GsfOutfilePtr outfile(gsf_outfile_msole_new(sink.get()));
    if (!outfile)
        return Error{ErrorCode::Io, StrCat("cannot start a compound file in ", path)};
    bool ok = true;
    for (const StorageStream& stream : streams) {
        GsfOutputPtr child(gsf_outfile_new_child(outfile.get(), stream.name.c_str(), FALSE));
        ok = ok && child != nullptr;
        if (child && !stream.bytes.empty())
            ok = ok && gsf_output_write(child.get(), stream.bytes.size(), stream.bytes.data());
        if (child)
            ok = gsf_output_close(child.get()) && ok;
    }
    ok = gsf_output_close(GSF_OUTPUT(outfile.get())) && ok;
    // Closing the compound file normally closes its sink too.
    if (!gsf_output_is_closed(sink.get()))
        ok = gsf_output_close(sink.get()) && ok;
    if (!ok)
        return Error{ErrorCode::Io, StrCat("writing the compound file ", path, " failed")};
    return {};
}

} // namespace lumenar::platform
