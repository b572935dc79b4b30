// System properties.

#include <list>
#include <string>
#include <utility>

#include "adapter/MiddlewareIpc.h"
#include "adapter/Published.h"
#include "adapter/ask.h"
#include "facade/PropertyFacade.h"
#include "protocol/message.h"

using adapter::ask;
using adapter::load;
using adapter::tell;
using middlewarefacade::PropertyFacade;
using quillwork::fieldText;
using quillwork::setFieldText;

std::string MiddlewareIpc::getSystemProperty(std::string name) {
  return ask(load(propertyFacade), &PropertyFacade::getProperty, std::move(name));
}

void MiddlewareIpc::removeSystemProperty(std::string name) {
  tell(load(propertyFacade), &PropertyFacade::removeProperty, std::move(name));
}

void MiddlewareIpc::setSystemProperty(quillwork::system_property& property) {
  tell(load(propertyFacade), &PropertyFacade::setProperty, std::string(fieldText(property.name)),
       std::string(fieldText(property.value)));
}

std::list<quillwork::system_property> MiddlewareIpc::getSystemProperties() {
  std::list<quillwork::system_property> properties;
  PropertyFacade* const facade = load(propertyFacade);
  if (facade == nullptr) return properties;
  for (const middlewarefacade::Property_& from : facade->getProperties()) {
    quillwork::system_property& to = properties.emplace_back();
    setFieldText(to.name, from.name);
    setFieldText(to.value, from.value);
  }
  return properties;
}
