#include "exporter/source_info.h"

#include <cstring>

namespace QVN {
namespace {

std::optional<prsdk::PrParam> Ask(const prsdk::ExportInfoSuite* suite, prsdk::uint32 pluginId,
                                  prsdk::PrExportSourceInfoKey key) {
    prsdk::PrParam answer;
    std::memset(&answer, 0, sizeof answer);
    if (!suite || suite->GetExportSourceInfo(pluginId, key, &answer) != prsdk::suiteError_NoError)
        return std::nullopt;
    return answer;
}

// The fields are read by value: in the packed record the 64-bit members are not aligned.
std::optional<prsdk::int64> IntegerOf(const prsdk::PrParam* p) {
    switch (p->mType) {
    case prsdk::kPrParamType_Int8:
        return prsdk::int64{p->mInt8};
    case prsdk::kPrParamType_Int16:
        return prsdk::int64{p->mInt16};
    case prsdk::kPrParamType_Int32:
        return prsdk::int64{p->mInt32};
    case prsdk::kPrParamType_Int64:
        return prsdk::int64{p->mInt64};
    case prsdk::kPrParamType_Float32:
        return static_cast<prsdk::int64>(p->mFloat32);
    case prsdk::kPrParamType_Float64:
        return static_cast<prsdk::int64>(p->mFloat64);
    case prsdk::kPrParamType_Bool:
        return prsdk::int64{p->mBool};
    }
    return std::nullopt;
}

} // namespace

std::optional<prsdk::int64> SourceInteger(const prsdk::ExportInfoSuite* suite, prsdk::uint32 pluginId,
                                          prsdk::PrExportSourceInfoKey key) {
    const std::optional<prsdk::PrParam> p = Ask(suite, pluginId, key);
    return p ? IntegerOf(&*p) : std::nullopt;
}

std::optional<double> SourceReal(const prsdk::ExportInfoSuite* suite, prsdk::uint32 pluginId,
                                 prsdk::PrExportSourceInfoKey key) {
    const std::optional<prsdk::PrParam> p = Ask(suite, pluginId, key);
    if (!p)
        return std::nullopt;
    if (p->mType == prsdk::kPrParamType_Float32)
        return static_cast<double>(p->mFloat32);
    if (p->mType == prsdk::kPrParamType_Float64)
        return double{p->mFloat64};
    const std::optional<prsdk::int64> whole = IntegerOf(&*p);
    return whole ? std::optional<double>(static_cast<double>(*whole)) : std::nullopt;
}

} // namespace QVN
