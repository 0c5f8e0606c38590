#pragma once

#include <string>

#include "wayloom/platform/Bundle.hpp"
#include "wayloom/platform/PropertyListReader.hpp"

namespace wayloom::posix {

// A bundle that is a directory: resource "name" of type "type" is the file "name.type" in it, and a name may lead into
// its subdirectories. A directory that is missing, and an empty path, is an empty bundle.
class DirectoryBundle : public platform::Bundle {
 public:
  // A relative path counts from the working directory of this moment. The reader is used by the constructor only.
  DirectoryBundle(const std::string& path, const platform::PropertyListReader& propertyLists);

  std::optional<std::string> pathForResource(std::string_view name, std::string_view type) const override;
  const platform::Json& infoDictionary() const override { return infoDictionary_; }

 private:
  std::string path_;
  platform::Json infoDictionary_;
};

}  // namespace wayloom::posix
