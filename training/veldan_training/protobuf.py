"""Protobuf messages from a table of field numbers, so that a network file needs neither a .proto file nor its compiler."""
from google.protobuf import descriptor_pb2, descriptor_pool, message_factory

FIELD = descriptor_pb2.FieldDescriptorProto


def build_messages(package, schema):
    """schema: {message: [(field, number, type, repeated, message type or None)]}. Returns {message: class}."""
    f = descriptor_pb2.FileDescriptorProto(name=f"{package}.proto", package=package, syntax="proto2")
    for message, fields in schema.items():
        m = f.message_type.add(name=message)
        for name, number, kind, repeated, type_name in fields:
            field = m.field.add(name=name, number=number, type=kind, json_name=name,
                                label=FIELD.LABEL_REPEATED if repeated else FIELD.LABEL_OPTIONAL,
                                type_name=f".{package}.{type_name}" if type_name else None)
            if repeated and kind == FIELD.TYPE_FLOAT:
                field.options.packed = True  # or every number would carry a tag of its own
    pool = descriptor_pool.DescriptorPool()
    pool.AddSerializedFile(f.SerializeToString())
    found = {m: pool.FindMessageTypeByName(f"{package}.{m}") for m in schema}
    if hasattr(message_factory, "GetMessageClass"):  # since 4.22, and all that there is since 5
        return {m: message_factory.GetMessageClass(d) for m, d in found.items()}
    return {m: message_factory.MessageFactory(pool).GetPrototype(d) for m, d in found.items()}
