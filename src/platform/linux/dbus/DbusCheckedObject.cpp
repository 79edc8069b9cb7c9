#include "platform/linux/dbus/DbusCheckedObject.h"

namespace tessel {

DbusCheckedObject::DbusCheckedObject(std::unique_ptr<sdbus::IObject> object, Check check, After after)
    : _object(std::move(object))
    , _check(std::move(check))
    , _after(std::move(after))
{
}

sdbus::method_callback DbusCheckedObject::checked(sdbus::method_callback callback)
{
    return [this, callback = std::move(callback)](sdbus::MethodCall call) {
        if (!_check(call))
            return;
        struct After {
            const std::function<void()>& after;
            ~After() { after(); }
        } after { _after };
        callback(std::move(call));
    };
}

void DbusCheckedObject::registerMethod(const std::string& interfaceName, std::string methodName,
    std::string inputSignature, std::string outputSignature, sdbus::method_callback methodCallback,
    sdbus::Flags flags)
{
    _object->registerMethod(interfaceName, std::move(methodName), std::move(inputSignature),
        std::move(outputSignature), checked(std::move(methodCallback)), flags);
}

void DbusCheckedObject::registerMethod(const std::string& interfaceName, std::string methodName,
    std::string inputSignature, const std::vector<std::string>& inputNames, std::string outputSignature,
    const std::vector<std::string>& outputNames, sdbus::method_callback methodCallback, sdbus::Flags flags)
{
    _object->registerMethod(interfaceName, std::move(methodName), std::move(inputSignature), inputNames,
        std::move(outputSignature), outputNames, checked(std::move(methodCallback)), flags);
}

void DbusCheckedObject::registerSignal(
    const std::string& interfaceName, std::string signalName, std::string signature, sdbus::Flags flags)
{
    _object->registerSignal(interfaceName, std::move(signalName), std::move(signature), flags);
}

void DbusCheckedObject::registerSignal(const std::string& interfaceName, std::string signalName,
    std::string signature, const std::vector<std::string>& parameterNames, sdbus::Flags flags)
{
    _object->registerSignal(
        interfaceName, std::move(signalName), std::move(signature), parameterNames, flags);
}

void DbusCheckedObject::registerProperty(const std::string& interfaceName, std::string propertyName,
    std::string signature, sdbus::property_get_callback getCallback, sdbus::Flags flags)
{
    _object->registerProperty(
        interfaceName, std::move(propertyName), std::move(signature), std::move(getCallback), flags);
}

void DbusCheckedObject::registerProperty(const std::string& interfaceName, std::string propertyName,
    std::string signature, sdbus::property_get_callback getCallback, sdbus::property_set_callback setCallback,
    sdbus::Flags flags)
{
    _object->registerProperty(interfaceName, std::move(propertyName), std::move(signature),
        std::move(getCallback), std::move(setCallback), flags);
}

void DbusCheckedObject::setInterfaceFlags(const std::string& interfaceName, sdbus::Flags flags)
{
    _object->setInterfaceFlags(interfaceName, flags);
}

void DbusCheckedObject::finishRegistration() { _object->finishRegistration(); }

void DbusCheckedObject::unregister() { _object->unregister(); }

sdbus::Signal DbusCheckedObject::createSignal(const std::string& interfaceName, const std::string& signalName)
{
    return _object->createSignal(interfaceName, signalName);
}

void DbusCheckedObject::emitSignal(const sdbus::Signal& message) { _object->emitSignal(message); }

void DbusCheckedObject::emitPropertiesChangedSignal(
    const std::string& interfaceName, const std::vector<std::string>& propNames)
{
    _object->emitPropertiesChangedSignal(interfaceName, propNames);
}

void DbusCheckedObject::emitPropertiesChangedSignal(const std::string& interfaceName)
{
    _object->emitPropertiesChangedSignal(interfaceName);
}

void DbusCheckedObject::emitInterfacesAddedSignal() { _object->emitInterfacesAddedSignal(); }

void DbusCheckedObject::emitInterfacesAddedSignal(const std::vector<std::string>& interfaces)
{
    _object->emitInterfacesAddedSignal(interfaces);
}

void DbusCheckedObject::emitInterfacesRemovedSignal() { _object->emitInterfacesRemovedSignal(); }

void DbusCheckedObject::emitInterfacesRemovedSignal(const std::vector<std::string>& interfaces)
{
    _object->emitInterfacesRemovedSignal(interfaces);
}

void DbusCheckedObject::addObjectManager() { _object->addObjectManager(); }

void DbusCheckedObject::removeObjectManager() { _object->removeObjectManager(); }

bool DbusCheckedObject::hasObjectManager() const { return _object->hasObjectManager(); }

sdbus::IConnection& DbusCheckedObject::getConnection() const { return _object->getConnection(); }

const std::string& DbusCheckedObject::getObjectPath() const { return _object->getObjectPath(); }

const sdbus::Message* DbusCheckedObject::getCurrentlyProcessedMessage() const
{
    return _object->getCurrentlyProcessedMessage();
}

} // namespace tessel
