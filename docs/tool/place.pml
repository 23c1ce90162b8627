Room:object(
    __class__(im.Room)
    __code__(1F03)
    [1]name:string()
    [2]seats:int32(12{1..500}{*as the fire brigade permits*})
    [3]kind:enum{RoomKind}(
        hall(0)
        garden(1)
    )
    [4]tags:list{string}()
    [5]door:string?({***})
)
