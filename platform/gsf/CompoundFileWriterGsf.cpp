#include "platform/CompoundFileWriter.h"

#include "base/StrCat.h"

#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-memory.h>
#include <gsf/gsf-utils.h>

#include <memory>
#include <mutex>

namespace lumenar::platform {
namespace {

struct GObjectUnref
{
    void operator()(void* object) const
    {
        if (object != nullptr)
            g_object_unref(object);
    }
};
using GsfOutputPtr = std::unique_ptr<GsfOutput, GObjectUnref>;

base::Status WriteChildren(GsfOutfile* parent, const std::vector<CompoundNode>& nodes)
{
    for (const CompoundNode& node : nodes) {
        GsfOutputPtr child(gsf_outfile_new_child(parent, node.name.c_str(), node.storage ? TRUE : FALSE));
        if (!child)
            return base::Error{base::ErrorCode::Io, base::StrCat("cannot make element ", node.name)};
        if (node.storage)
            LUM_TRY(WriteChildren(GSF_OUTFILE(child.get()), node.children));
        else if (!node.bytes.empty() && !gsf_output_write(child.get(), node.bytes.size(), node.bytes.data()))
            return base::Error{base::ErrorCode::Io, base::StrCat("cannot write stream ", node.name)};
        if (!gsf_output_close(child.get()))
            return base::Error{base::ErrorCode::Io, base::StrCat("cannot close element ", node.name)};
    }
    return {};
}

} // namespace

base::Result<std::vector<std::uint8_t>> WriteCompoundFile(const std::vector<CompoundNode>& root)
{
    static std::once_flag once;
    std::call_once(once, [] { gsf_init(); });
    GsfOutputPtr sink(gsf_output_memory_new());
    GsfOutputPtr outfile(reinterpret_cast<GsfOutput*>(gsf_outfile_msole_new(sink.get())));
    if (!outfile)
        return base::Error{base::ErrorCode::Io, "cannot start a compound file"};
    const base::Status written = WriteChildren(GSF_OUTFILE(outfile.get()), root);
    const bool closed = gsf_output_close(outfile.get());
    if (!written.ok())
        return written.error();
    if (!closed)
        return base::Error{base::ErrorCode::Io, "cannot finish the compound file"};
    const guint8* data = gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(sink.get()));
    const auto size = static_cast<std::size_t>(gsf_output_size(sink.get()));
    return std::vector<std::uint8_t>(data, data + size);
}

} // namespace lumenar::platform
