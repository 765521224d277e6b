#include "FileTypeProcessor.h"

#include "FileTypeIdent.h"

DefaultCallBack::~DefaultCallBack() = default;
int DefaultCallBack::getAction(int) { return 1; }

namespace ZOV_SPACE {

constinit FileTypeProcessor::CallBack* FileTypeProcessor::call_back = nullptr;
constinit Mutex FileTypeProcessor::mutex;

FileTypeProcessor::CallBack::~CallBack() = default;
FileTypeProcessor::~FileTypeProcessor() = default;

int FileTypeProcessor::setCallBack(CallBack*) { return 0; }

int FileTypeProcessor::init() {
    _fileName.clear();
    _contentType.clear();
    _action = 0;
    return 0;
}

int FileTypeProcessor::setFileName(std::string& name) {
    _fileName = name;
    return _action;
}

int FileTypeProcessor::setContentType(std::string& type) {
    _contentType = type;
    return _action;
}

int FileTypeProcessor::check(InputStream* in) {
    return decide(FileTypeIdent::checkFileType(in, _fileName, _contentType));
}

int FileTypeProcessor::check(BufferBase* buffer) {
    return decide(FileTypeIdent::checkFileType(buffer, _fileName, _contentType));
}

int FileTypeProcessor::requiredLength() { return FileTypeIdent::kHeadLength; }

int FileTypeProcessor::getAction() { return _action; }

int FileTypeProcessor::decide(int code) {
    DefaultCallBack byDefault;
    CallBack* const callBack = call_back ? call_back : &byDefault;
    _action = callBack->getAction(code);
    return _action;
}

}  // namespace ZOV_SPACE
